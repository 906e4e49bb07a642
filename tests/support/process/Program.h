// Runs programs as child processes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

namespace keldane::testing {

/// Starts the program that the first argument names. Its standard error goes to a file, its output is
/// dropped.
inline pid_t spawnProgram(std::vector<std::string> arguments, const std::string& errors = "/dev/null") {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  EXPECT_EQ(posix_spawn(&child, pointers[0], &actions, nullptr, pointers.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

/// The status of the child's end, as waitpid gives it.
inline int waitForEnd(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

/// A running program, which the destructor ends.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments, const std::string& errors = "/dev/null")
      : pid_(spawnProgram(std::move(arguments), errors)) {}
  ~Program() {
    kill(pid_, SIGKILL);
    waitForEnd(pid_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  pid_t pid() const { return pid_; }

 private:
  const pid_t pid_;
};

}  // namespace keldane::testing
