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
    const std::lock_guard guard(mutex_);
    over_ = true;
  }
  changed_.notify_all();
  if (watcher_.joinable()) {
    watcher_.join();
  }
}

void Deadline::renew() {
  {
    const std::lock_guard guard(mutex_);
    renewed_ = true;
  }
  changed_.notify_all();
}

void Deadline::watch(std::chrono::duration<double> limit) {
  std::unique_lock guard(mutex_);
  while (!over_) {
    renewed_ = false;
    if (!changed_.wait_for(guard, limit, [this] { return over_ || renewed_; })) {
      std::cout.flush();
      std::cerr << sentence_ << std::endl;
      _exit(status_);
    }
  }
}

}  // namespace keldane
