// Another process that serves a local socket for a test.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/files/Descriptor.h"

namespace keldane::testing {

class PeerProcess {
 public:
  /// Starts a program and waits until it has made the socket.
  PeerProcess(std::vector<std::string> command, const std::string& socket) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    input_ = Descriptor(ends[1]);
    const Descriptor other(ends[0]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, other.get(), STDIN_FILENO);
    std::vector<char*> arguments;
    for (std::string& word : command) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int error = posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      throw std::runtime_error(command.front() + " cannot be started");
    }
    while (!std::filesystem::is_socket(socket)) {
      if (::waitpid(process_, nullptr, WNOHANG) == process_) {
        process_ = 0;
        throw std::runtime_error(command.front() + " ended at once");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // The socket is bound, but the process may not listen yet.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ~PeerProcess() {
    if (process_ != 0) {
      ::kill(process_, SIGTERM);
      ::waitpid(process_, nullptr, 0);
    }
  }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;
  pid_t id() const { return process_; }

 private:
  pid_t process_ = 0;
  Descriptor input_;
};

}  // namespace keldane::testing
