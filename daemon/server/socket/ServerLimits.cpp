#include "daemon/server/socket/ServerLimits.h"

namespace keldane {

WalkTurns::Turn::Turn(WalkTurns& turns, Line& line) : turns_(turns), line_(line) {
  const ScopedLock guard(turns_.mutex_);
  const std::uint64_t ticket = line_.arrived++;
  turns_.changed_.wait(turns_.mutex_, [&]() KELDANE_REQUIRES(turns_.mutex_) {
    return turns_.ended_ || (ticket < line_.left + turns_.ofUser_ && turns_.underWay_ < turns_.all_);
  });
  begun_ = !turns_.ended_;
  turns_.underWay_ += begun_ ? 1 : 0;
}

WalkTurns::Turn::~Turn() {
  {
    const ScopedLock guard(turns_.mutex_);
    ++line_.left;
    turns_.underWay_ -= begun_ ? 1 : 0;
  }
  turns_.changed_.notifyAll();
}

void WalkTurns::end() {
  {
    const ScopedLock guard(mutex_);
    ended_ = true;
  }
  changed_.notifyAll();
}

unsigned WalkTurns::underWay() const {
  const ScopedLock guard(mutex_);
  return underWay_;
}

std::uint64_t WalkTurns::arrivedIn(const Line& line) const {
  const ScopedLock guard(mutex_);
  return line.arrived;
}

}  // namespace keldane
