#include "clients/ctl/terminal/Interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <system_error>

#include "platform/text/Translation.h"

namespace keldane {

namespace {

std::atomic<int> interruptPipe = -1;

extern "C" void noteSignal(int number) {
  std::signal(number, SIG_DFL);
  [[maybe_unused]] const ssize_t written = write(interruptPipe, "!", 1);
}

}  // namespace

Interrupt::Interrupt() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), tr("No pipe can be made"));
  }
  reading_ = Descriptor(ends[0]);
  writing_ = Descriptor(ends[1]);
  interruptPipe = writing_.get();
  std::signal(SIGINT, noteSignal);
  std::signal(SIGTERM, noteSignal);
}

Interrupt::~Interrupt() {
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  interruptPipe = -1;
}

bool Interrupt::wait(std::chrono::milliseconds time) {
  pollfd source{reading_.get(), POLLIN, 0};
  char sign = 0;
  if (poll(&source, 1, static_cast<int>(time.count())) > 0 && read(reading_.get(), &sign, 1) == 1) {
    came_ = true;
  }
  return came_;
}

}  // namespace keldane
