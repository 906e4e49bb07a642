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
    const ScopedLock guard(mutex_);
    over_ = true;
  }
  changed_.notifyAll();
  if (watcher_.joinable()) {
    watcher_.join();
  }
}

bool StallWatch::turn() {
  bool said = false;
  {
    const ScopedLock guard(mutex_);
    turned_ = true;
    said = std::exchange(said_, false);
  }
  changed_.notifyAll();
  return said;
}

void StallWatch::watch(std::chrono::duration<double> limit) {
  const ScopedLock guard(mutex_);
  const auto isOverOrTurned = [this]() KELDANE_REQUIRES(mutex_) { return over_ || turned_; };
  while (!over_) {
    turned_ = false;
    if (!changed_.waitFor(mutex_, limit, isOverOrTurned)) {
      said_ = true;
      complain(tr("The backup daemon does not answer; waiting for it."));
      changed_.wait(mutex_, isOverOrTurned);
    }
  }
}

}  // namespace keldane
