// Interprets the storage program's exit status and error messages.
#pragma once

#include <string>
#include <string_view>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/Secrets.h"
#include "daemon/engine/process/ChildProcess.h"

namespace keldane {

/// The answer for people: the problem, its `reason` (may be empty) and the remedy.
EngineAnswer answerFor(Health health, const std::string& reason = {});

/// Judges how a run ended. `errors` is its standard error without the lines about single files.
EngineAnswer judgedEnd(const ChildEnd& end, std::string_view errors, const Secrets& secrets);

/// Whether an error line shows that the storage program will retry for a minute or more without a good
/// chance. It never reconnects to a lost SSH server, a folder of this machine that refuses access goes on
/// refusing it, and a server that cannot be reached at the beginning is tried again later by the daemon.
bool triesInVain(std::string_view errorLine, bool isFolder, bool isSftp);

}  // namespace keldane
