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

/// The environment of every child: PATH, HOME, TMPDIR and SSH_AUTH_SOCK of the daemon, and LANG=C.
/// `additions` are added and replace these.
Environment childEnvironment(const Environment& additions);

/// A program and the receivers of its output. The functions are called on the thread that runs the program,
/// with one line each, without the line end. An exception from them ends the program and reaches the caller.
struct ChildCommand {
  std::vector<std::string> arguments;  ///< the first is the program's absolute path
  Environment environment;             ///< the whole environment
  std::string workingFolder = "/";
  int standardOutput = -1;  ///< the descriptor for standard output; -1: lines go to `outputLine`
  std::function<void(std::string_view line)> outputLine;
  std::function<void(std::string_view line)> errorLine;
};

/// The end of a child.
struct ChildEnd {
  int startError = 0;   ///< the error number when it could not be started at all
  int exitStatus = -1;  ///< -1 unless it ended by itself
  int signal = 0;       ///< the signal that ended it
  bool cancelled = false;
  std::string errorText;  ///< the last 64 KiB of standard error
};

/// Runs a program without a terminal and without this process's descriptors, signal mask and handlers. The
/// program ends when this process ends, for any reason. A cancelled job sends it SIGINT within about 0.1 s,
/// and 10 s later SIGKILL, with all processes that it started. Blocks; several threads may call it at once.
ChildEnd runChild(const ChildCommand& command, const EngineJob& job);

}  // namespace keldane
