#include "clients/ctl/terminal/StallWatch.h"

#include "clients/ctl/Session.h"
#include "platform/text/Translation.h"

namespace keldane {

StallWatch::StallWatch(double seconds) {
  if (seconds > 0) {
    watcher_ = std::thread([this, seconds] { watch(std::chrono::duration<double>(seconds)); });
  }
}

StallWatch::~StallWatch() {
  {
    const std::lock_guard guard(mutex_);
    over_ = true;
  }
  changed_.notify_all();
  if (watcher_.joinable()) {
    watcher_.join();
  }
}

bool StallWatch::turn() {
  bool said = false;
  {
    const std::lock_guard guard(mutex_);
    turned_ = true;
    said = std::exchange(said_, false);
  }
  changed_.notify_all();
  return said;
}

void StallWatch::watch(std::chrono::duration<double> limit) {
  std::unique_lock guard(mutex_);
  while (!over_) {
    turned_ = false;
    if (!changed_.wait_for(guard, limit, [this] { return over_ || turned_; })) {
      said_ = true;
      complain(tr("The backup daemon does not answer; waiting for it."));
      changed_.wait(guard, [this] { return over_ || turned_; });
    }
  }
}

}  // namespace keldane
