#include "cli/Deadline.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace keldane {

Deadline::Deadline(double seconds, std::string sentence, int status)
    : sentence_(std::move(sentence)), status_(status) {
  if (seconds > 0) {
    // A longer limit could overflow the clock and would then end at once.
    const double limit = std::min(seconds, static_cast<double>(kLongestDeadline));
    watcher_ = std::thread([this, limit] { watch(std::chrono::duration<double>(limit)); });
  }
}

Deadline::~Deadline() {
  {
    const ScopedLock guard(mutex_);
    over_ = true;
  }
  changed_.notifyAll();
  if (watcher_.joinable()) {
    watcher_.join();
  }
}

void Deadline::renew() {
  {
    const ScopedLock guard(mutex_);
    renewed_ = true;
  }
  changed_.notifyAll();
}

void Deadline::watch(std::chrono::duration<double> limit) {
  const ScopedLock guard(mutex_);
  const auto isOverOrRenewed = [this]() KELDANE_REQUIRES(mutex_) { return over_ || renewed_; };
  while (!over_) {
    renewed_ = false;
    if (!changed_.waitFor(mutex_, limit, isOverOrRenewed)) {
      std::cout.flush();
      std::cerr << sentence_ << std::endl;
      _exit(status_);
    }
  }
}

}  // namespace keldane
