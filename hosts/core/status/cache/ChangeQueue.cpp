#include "hosts/core/status/cache/ChangeQueue.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <iterator>
#include <utility>

namespace keldane {

namespace {

/// While the window's thread is busy for more than this share of its time, with whatever work, no changes are
/// handed out.
constexpr double kMostBusy = 0.25;
constexpr std::size_t kLeast = 8, kMost = 200;
/// The time over which the load of the thread is averaged. File managers draw some moments after they were
/// told.
constexpr double kMemory = 0.2;  // seconds
/// After this time even a thread that is always busy gets a few changes.
constexpr auto kLongestWait = std::chrono::seconds(1);

double seconds(ChangeQueue::Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

ChangeQueue::Work ChangeQueue::Work::now() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return {Clock::now(), std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec)};
}

bool ChangeQueue::ByName::operator()(const std::string& one, const std::string& other) const {
  return strverscmp(one.c_str(), other.c_str()) < 0;
}

bool ChangeQueue::add(std::vector<std::string> paths) {
  if (paths.empty()) {
    return false;
  }
  const ScopedLock guard(mutex_);
  if (few_.size() + paths.size() <= kFew) {
    few_.insert(few_.end(), std::move_iterator(paths.begin()), std::move_iterator(paths.end()));
  } else {
    many_.insert(std::move_iterator(paths.begin()), std::move_iterator(paths.end()));
  }
  return !std::exchange(isBeating_, true);
}

std::optional<std::vector<std::string>> ChangeQueue::take(const Work& work) {
  const ScopedLock guard(mutex_);
  if (few_.empty() && many_.empty()) {
    isBeating_ = hasBegun_ = false;
    return std::nullopt;
  }
  std::vector<std::string> taken = std::exchange(few_, {});
  for (std::size_t count = mayTake(work, many_.size()); count > 0; --count) {
    taken.push_back(std::move(many_.extract(many_.begin()).value()));
  }
  return taken;
}

std::size_t ChangeQueue::mayTake(const Work& work, std::size_t waiting) {
  if (!std::exchange(hasBegun_, true)) {
    last_ = work;
    taken_ = work.time;
    busy_ = -1;  // not known yet
    slice_ = kFew;
    return 0;
  }
  const double elapsed = seconds(work.time - last_.time);
  if (elapsed <= 0) {
    return 0;
  }
  const double share = std::min(1.0, seconds(work.used - last_.used) / elapsed);
  busy_ = busy_ < 0 ? share : busy_ + (share - busy_) * (1 - std::exp(-elapsed / kMemory));
  last_ = work;
  if (busy_ > kMostBusy) {
    slice_ = std::max(kLeast, slice_ / 2);
    if (work.time - taken_ < kLongestWait) {
      return 0;
    }
  } else if (busy_ < kMostBusy / 2) {
    slice_ = std::min(kMost, slice_ * 2);
  }
  taken_ = work.time;
  return std::min(slice_, waiting);
}

void ChangeQueue::clear() {
  const ScopedLock guard(mutex_);
  few_.clear();
  many_.clear();
}

}  // namespace keldane
