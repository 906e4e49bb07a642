// A lock that also carries an integer, and can be waited for until that integer has a value.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "platform/threads/Annotations.h"
#include "platform/threads/LockOrder.h"

namespace keldane {

/// A mutual-exclusion lock with a condition. Any thread; not recursive. The thread that acquired it releases
/// it.
class KELDANE_CAPABILITY("mutex") ConditionLock {
 public:
  explicit ConditionLock(int condition, const LockTraits& traits = {})
      : condition_(condition), record_(traits) {}
  ConditionLock(const ConditionLock&) = delete;
  ConditionLock& operator=(const ConditionLock&) = delete;

  /// Acquires the lock whatever the condition is.
  void lock() KELDANE_ACQUIRE();
  /// Waits, without a limit, until the lock is free and the condition is `condition`, and acquires it.
  void lockWhenCondition(int condition) KELDANE_ACQUIRE();
  /// The same, but gives up when `cancelled` answers yes; the answer says whether the lock was acquired.
  /// `cancelled` is asked whenever the lock cannot be had at once, and again after each `wake`, with the
  /// lock's inner mutex held.
  bool lockWhenCondition(int condition, const std::function<bool()>& cancelled) KELDANE_TRY_ACQUIRE(true);
  /// The same with a limit in time.
  bool lockWhenCondition(int condition, std::chrono::steady_clock::time_point limit)
      KELDANE_TRY_ACQUIRE(true);

  /// Releases the lock and leaves the condition as it is. The object must last until the call returns:
  /// whoever gets the lock may be ahead of it.
  void unlock() KELDANE_RELEASE();
  /// Releases the lock with a new condition.
  void unlockWithCondition(int condition) KELDANE_RELEASE();

  /// Lets every cancellable waiter ask its question again.
  void wake();
  int condition() const;
  const LockRecord& record() const { return record_; }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int condition_;
  bool held_ = false;
  [[no_unique_address]] LockRecord record_;
};

}  // namespace keldane
