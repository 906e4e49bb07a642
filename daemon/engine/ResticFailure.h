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

}  // namespace keldane
