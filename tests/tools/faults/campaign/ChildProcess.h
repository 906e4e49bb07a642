// Processes that end with the one that started them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace keldane::testing {

/// A process that was started here; it is ended with its owner.
class Process {
 public:
  /// The program and its arguments. Throws std::runtime_error when it cannot be started.
  explicit Process(std::vector<std::string> arguments, int input = -1, int output = -1);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  /// The exit status, or -1.
  int end(int signal);

 private:
  pid_t pid_ = -1;
};

/// Runs something in a process of its own, which ends with this one, and answers which that is.
pid_t startChild(const std::function<int()>& work);

}  // namespace keldane::testing
