#include "clients/ctl/service/Supervisor.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <vector>

#include "clients/ctl/service/AutostartService.h"
#include "clients/ctl/service/Program.h"

namespace keldane {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds kFirstPause{5}, kLongestPause{300}, kLongRun{600};

sigset_t watchedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGCHLD}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

}  // namespace

seconds RestartPause::after(seconds ran) {
  next_ = ran >= kLongRun || next_ == seconds(0) ? kFirstPause : std::min(next_ * 2, kLongestPause);
  return next_;
}

Supervisor::Supervisor(std::string program) : program_(std::move(program)), log_(serviceLogFile()) {
  const sigset_t signals = watchedSignals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  signals_ = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

Supervisor::End Supervisor::run() {
  RestartPause pause;
  while (!wanted_) {
    if (!startChild()) {
      log_.write(program_ + " cannot be started.\n");
      return End::done;
    }
    const int status = watchChild();
    if (wanted_ || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
      break;  // the daemon was told to end
    }
    const auto ran = std::chrono::duration_cast<seconds>(steady_clock::now() - child_.since);
    const seconds time = pause.after(ran);
    log_.write("The daemon ended by itself; it is started again in " + std::to_string(time.count()) +
               " s.\n");
    if (rest(time)) {
      break;
    }
  }
  return wanted_.value_or(End::done);
}

bool Supervisor::startChild() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  child_.output = Descriptor(ends[0]);
  const Descriptor writing(ends[1]);
  fcntl(child_.output.get(), F_SETFL, O_NONBLOCK);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, writing.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, writing.get(), STDERR_FILENO);
  posix_spawnattr_t attributes;
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigmask(&attributes, &none);
  const std::vector<std::string> command = {program_, "--foreground"};
  const int error = posix_spawnp(&child_.process, program_.c_str(), &actions, &attributes,
                                 argumentPointers(command).data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  child_.since = steady_clock::now();
  return error == 0;
}

int Supervisor::watchChild() {
  int status = 0;
  pollfd events[] = {{signals_.get(), POLLIN, 0}, {child_.output.get(), POLLIN, 0}};
  for (;;) {
    poll(events, std::size(events), -1);
    // A program that the daemon left behind may keep the pipe open, so the end of the daemon is not the end
    // of the pipe.
    events[1].fd = copyOutput() ? child_.output.get() : -1;
    const bool wasWanted = wanted_.has_value();
    noteSignal();
    if (waitpid(child_.process, &status, WNOHANG) == child_.process) {
      copyOutput();
      return status;
    }
    if (wanted_ && !wasWanted) {
      kill(child_.process, SIGTERM);
    }
  }
}

bool Supervisor::copyOutput() {
  char block[4096];
  for (;;) {
    const ssize_t got = read(child_.output.get(), block, sizeof(block));
    if (got > 0) {
      log_.write(std::string_view(block, static_cast<std::size_t>(got)));
    } else if (got == 0 || errno != EINTR) {
      return got != 0 && errno == EAGAIN;
    }
  }
}

void Supervisor::noteSignal() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
    if (info.ssi_signo == SIGUSR1) {
      wanted_ = wanted_.value_or(End::renew);
    } else if (info.ssi_signo != SIGCHLD) {
      wanted_ = End::done;
    }
  }
}

bool Supervisor::rest(seconds time) {
  const auto end = steady_clock::now() + time;
  while (!wanted_ && steady_clock::now() < end) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now()).count();
    pollfd event = {signals_.get(), POLLIN, 0};
    poll(&event, 1, static_cast<int>(left) + 1);
    noteSignal();
  }
  return wanted_.has_value();
}

}  // namespace keldane
