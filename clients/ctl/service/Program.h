// Other programs that a command runs.
#pragma once

#include <string>
#include <vector>

namespace keldane {

/// How a program ended. `status` is its exit status, 128 and the signal's number after a signal, and -1 when
/// it could not be started.
struct ProgramEnd {
  int status = -1;
  std::string output;  ///< what it wrote to standard output
};

/// Runs a program, which is looked for in PATH, without a shell and waits for it. Its standard error is this
/// process's unless `quiet`.
ProgramEnd runProgram(const std::vector<std::string>& arguments, bool quiet = false);

/// Starts a program in a session of its own, without a terminal, and leaves it. False when it cannot be
/// started.
bool startProgram(const std::vector<std::string>& arguments);

/// Replaces this process by a program. Throws CommandFailure when it cannot be run.
[[noreturn]] void becomeProgram(const std::vector<std::string>& arguments);

/// Pointers to the arguments, as the system wants them.
std::vector<char*> argumentPointers(const std::vector<std::string>& arguments);

}  // namespace keldane
