#include "platform/threads/ConditionLock.h"

namespace keldane {

void ConditionLock::lock() {
  record_.willTake();
  std::unique_lock guard(mutex_);
  changed_.wait(guard, [this] { return !held_; });
  held_ = true;
  record_.taken();
}

void ConditionLock::lockWhenCondition(int condition) {
  record_.willWait();
  std::unique_lock guard(mutex_);
  changed_.wait(guard, [&] { return !held_ && condition_ == condition; });
  held_ = true;
  record_.taken();
}

bool ConditionLock::lockWhenCondition(int condition, const std::function<bool()>& cancelled) {
  record_.willWait();
  std::unique_lock guard(mutex_);
  bool givenUp = false;
  changed_.wait(guard, [&] {
    if (!held_ && condition_ == condition) {
      return true;
    }
    givenUp = cancelled();
    return givenUp;
  });
  if (!givenUp) {
    held_ = true;
    record_.taken();
  }
  return !givenUp;
}

bool ConditionLock::lockWhenCondition(int condition, std::chrono::steady_clock::time_point limit) {
  record_.willWait();
  std::unique_lock guard(mutex_);
  if (!changed_.wait_until(guard, limit, [&] { return !held_ && condition_ == condition; })) {
    return false;
  }
  held_ = true;
  record_.taken();
  return true;
}

// Whoever waits is woken when the mutex is free again: woken before, it would only go back to sleep for it.
void ConditionLock::unlock() {
  record_.released();
  {
    const std::lock_guard guard(mutex_);
    held_ = false;
  }
  changed_.notify_all();
}

void ConditionLock::unlockWithCondition(int condition) {
  record_.released();
  {
    const std::lock_guard guard(mutex_);
    condition_ = condition;
    held_ = false;
  }
  changed_.notify_all();
}

void ConditionLock::wake() {
  {
    const std::lock_guard guard(mutex_);  // nobody is between its question and its sleep
  }
  changed_.notify_all();
}

int ConditionLock::condition() const {
  const std::lock_guard guard(mutex_);
  return condition_;
}

}  // namespace keldane
