#include "tests/tools/faults/campaign/ChildProcess.h"

#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

namespace keldane::testing {

Process::Process(std::vector<std::string> arguments, int input, int output) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input >= 0) {
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  }
  const int error = posix_spawn(&pid_, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error(arguments[0] + " cannot be started");
  }
}

Process::~Process() { end(SIGKILL); }

int Process::end(int signal) {
  int status = -1;
  if (pid_ > 0) {
    kill(pid_, signal);
    waitpid(pid_, &status, 0);
    pid_ = -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

pid_t startChild(const std::function<int()>& work) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) {
    return child;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(1);
  }
  int status = 1;
  try {
    status = work();
  } catch (const std::exception& error) {
    std::cerr << "fault-campaign: " << error.what() << std::endl;
  }
  std::exit(status);
}

}  // namespace keldane::testing
