// A lock that also holds an integer. A thread can wait until the integer has a given value.
#pragma once

#include <functional>
#include <mutex>

#include "platform/threads/Annotations.h"
#include "platform/threads/LockOrder.h"

namespace keldane {

/// A mutual-exclusion lock with a condition. Any thread may use it. It is not recursive. The thread that
/// acquired it releases it. The lock is then handed to the first thread that waits for its condition.
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
  /// The same, but it gives up when `cancelled` returns true. It returns whether the lock was acquired.
  /// `cancelled` is called when the lock is not available at once, and again after each `wake`, with the
  /// lock's inner mutex held.
  bool lockWhenCondition(int condition, const std::function<bool()>& cancelled) KELDANE_TRY_ACQUIRE(true);

  /// Releases the lock and leaves the condition as it is. The object must live until the call returns: the
  /// next owner of the lock may run before it does.
  void unlock() KELDANE_RELEASE();
  /// Releases the lock with a new condition.
  void unlockWithCondition(int condition) KELDANE_RELEASE();

  /// Makes every cancellable waiter call its `cancelled` again.
  void wake();
  int condition() const;
  const LockRecord& record() const { return record_; }

 private:
  struct Waiter;

  bool acquire(const int* condition, const std::function<bool()>* cancelled);
  void release(const int* condition);
  /// The position of the first waiter in the list for which the predicate is true, or the end.
  template <class Predicate>
  Waiter** find(const Predicate& isSuch);
  bool isFor(const int* condition) const { return condition == nullptr || *condition == condition_; }

  mutable std::mutex mutex_;  // held only briefly
  // The waiting threads, in the order in which they came. While nobody holds the lock, none of them waits for
  // its present condition.
  Waiter* waiting_ = nullptr;
  int condition_;
  bool held_ = false;
  [[no_unique_address]] LockRecord record_;
};

}  // namespace keldane
