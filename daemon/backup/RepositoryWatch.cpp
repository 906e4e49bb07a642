#include "daemon/backup/RepositoryWatch.h"

#include <algorithm>

namespace keldane {

namespace {

constexpr std::chrono::seconds kFirstPause(5);
constexpr std::chrono::seconds kLongestPause(600);
constexpr unsigned kMostDoublings = 7;

}  // namespace

void RepositoryWatch::report(const EngineAnswer& answer) {
  if (answer.health == Health::cancelled) {
    return;
  }
  bool isNews = false;
  {
    const ScopedLock guard(mutex_);
    isNews = answer.health != standing_.health;
    standing_ = answer;
    if (answer) {
      failures_ = 0;
      nextTry_ = {};
    } else {
      // Checking for a disk is quick, and a user who plugs it in expects something to happen.
      const unsigned doublings =
          answer.health == Health::notConnected ? 0 : std::min(failures_, kMostDoublings);
      const auto pause = kFirstPause * (1U << doublings);
      nextTry_ = Clock::now() + std::min<std::chrono::seconds>(pause, kLongestPause);
      ++failures_;
    }
  }
  if (isNews) {
    alert_(answer);
  }
}

void RepositoryWatch::tryNow() {
  const ScopedLock guard(mutex_);
  nextTry_ = {};
  failures_ = 0;
}

EngineAnswer RepositoryWatch::standing() const {
  const ScopedLock guard(mutex_);
  return standing_;
}

bool RepositoryWatch::mayTry(Clock::time_point now) const {
  const ScopedLock guard(mutex_);
  return now >= nextTry_;
}

}  // namespace keldane
