// Other programs that a command runs.
#pragma once

#include <string>
#include <vector>

namespace keldane {

/// The end of a program. `status` is its exit status; 128 plus the signal's number after a signal; -1 when
/// the program could not be started.
struct ProgramEnd {
  int status = -1;
  std::string output;  ///< its standard output
};

/// Finds a program in PATH, runs it without a shell and waits for its end. Its standard error is this
/// process's unless `quiet`.
ProgramEnd runProgram(const std::vector<std::string>& arguments, bool quiet = false);

/// Starts a program in a session of its own, without a terminal, and does not wait for it. Returns false when
/// it cannot be started.
bool startProgram(const std::vector<std::string>& arguments);

/// Replaces this process by a program. Throws CommandFailure when it cannot be run.
[[noreturn]] void becomeProgram(const std::vector<std::string>& arguments);

/// Pointers to the arguments, as the system's calls need them.
std::vector<char*> argumentPointers(const std::vector<std::string>& arguments);

}  // namespace keldane
