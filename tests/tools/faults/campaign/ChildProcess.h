// Processes that end with the one that started them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace keldane::testing {

/// A process that was started here; the destructor ends it.
class Process {
 public:
  /// Starts a program with arguments. Throws std::runtime_error when it cannot be started.
  explicit Process(std::vector<std::string> arguments, int input = -1, int output = -1);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  /// Sends a signal and returns the exit status, or -1.
  int end(int signal);

 private:
  pid_t pid_ = -1;
};

/// Runs a function in a process of its own, which ends with this one, and returns the process's id.
pid_t startChild(const std::function<int()>& work);

}  // namespace keldane::testing
