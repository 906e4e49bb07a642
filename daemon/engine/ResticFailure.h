// What the storage program's exit status and words mean.
#pragma once

#include <string>
#include <string_view>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/ChildProcess.h"
#include "daemon/engine/Secrets.h"

namespace keldane {

/// The answer for people: what is wrong, why (`reason`, may be empty) and what to do.
EngineAnswer answerFor(Health health, const std::string& reason = {});

/// Judges how a run ended. `errors` is its standard error without what is about single files.
EngineAnswer judgedEnd(const ChildEnd& end, std::string_view errors, const Secrets& secrets);

/// Whether the storage program says that it will try again for most of a minute what cannot succeed: it never
/// connects anew to a lost SSH server, and a folder of this machine that refuses access goes on doing so.
bool triesInVain(std::string_view errorLine, bool isFolder, bool isSftp);

}  // namespace keldane
