// Runs another program to its end.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

using Environment = std::map<std::string, std::string>;

/// What every child gets of the daemon's own environment (PATH, HOME, TMPDIR, SSH_AUTH_SOCK) and LANG=C, with
/// `additions` over it.
Environment childEnvironment(const Environment& additions);

/// A program and what becomes of its output. The functions are called on the thread that runs it, one line
/// each, without the line end; what they throw ends the program and reaches the caller.
struct ChildCommand {
  std::vector<std::string> arguments;  ///< the first is the program's absolute path
  Environment environment;             ///< all of it
  std::string workingFolder = "/";
  int standardOutput = -1;  ///< the descriptor that it writes to; -1: by lines to `outputLine`
  std::function<void(std::string_view line)> outputLine;
  std::function<void(std::string_view line)> errorLine;
};

/// How it ended.
struct ChildEnd {
  int startError = 0;   ///< the error number when it could not be started at all
  int exitStatus = -1;  ///< -1 unless it ended by itself
  int signal = 0;       ///< that ended it
  bool cancelled = false;
  std::string errorText;  ///< the last 64 KiB of standard error
};

/// Runs a program without a terminal and without this process's descriptors, signal mask and handlers. It
/// ends with this process, whatever ends that. A cancelled job sends it SIGINT within about 0.1 s, and 10 s
/// later SIGKILL, with all processes that it started. Blocks; any thread, several at once.
ChildEnd runChild(const ChildCommand& command, const EngineJob& job);

}  // namespace keldane
