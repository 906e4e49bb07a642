#include "clients/ctl/service/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <system_error>

#include "clients/ctl/Session.h"
#include "platform/files/Descriptor.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

/// The open files with which a program starts.
class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void nothingAt(int descriptor) {
    posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0);
  }
  void copyTo(int source, int descriptor) { posix_spawn_file_actions_adddup2(&actions_, source, descriptor); }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

std::string readAll(int descriptor) {
  std::string text;
  char block[4096];
  for (ssize_t got = 0; (got = read(descriptor, block, sizeof(block))) != 0;) {
    if (got > 0) {
      text.append(block, static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      break;
    }
  }
  return text;
}

}  // namespace

std::vector<char*> argumentPointers(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    pointers.push_back(const_cast<char*>(argument.c_str()));  // the system's interface is older than const
  }
  pointers.push_back(nullptr);
  return pointers;
}

ProgramEnd runProgram(const std::vector<std::string>& arguments, bool quiet) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return {};
  }
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  FileActions actions;
  actions.nothingAt(STDIN_FILENO);
  actions.copyTo(writing.get(), STDOUT_FILENO);
  if (quiet) {
    actions.nothingAt(STDERR_FILENO);
  }
  pid_t child = 0;
  const std::vector<char*> pointers = argumentPointers(arguments);
  if (posix_spawnp(&child, pointers.front(), actions.get(), nullptr, pointers.data(), environ) != 0) {
    return {};
  }
  writing = Descriptor();
  ProgramEnd end;
  end.output = readAll(reading.get());
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  end.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return end;
}

bool startProgram(const std::vector<std::string>& arguments) {
  FileActions actions;
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    actions.nothingAt(stream);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t child = 0;
  const std::vector<char*> pointers = argumentPointers(arguments);
  const int error =
      posix_spawnp(&child, pointers.front(), actions.get(), &attributes, pointers.data(), environ);
  posix_spawnattr_destroy(&attributes);
  return error == 0;
}

void becomeProgram(const std::vector<std::string>& arguments) {
  std::cout.flush();
  execvp(arguments.front().c_str(), argumentPointers(arguments).data());
  throw CommandFailure(kNotTaken, filled(tr("%s cannot be run: %s."), arguments.front(),
                                         std::generic_category().message(errno)));
}

}  // namespace keldane
