// A lock that also carries an integer, and can be waited for until that integer has a value.
#pragma once

#include <functional>
#include <mutex>

#include "platform/threads/Annotations.h"
#include "platform/threads/LockOrder.h"

namespace keldane {

/// A mutual-exclusion lock with a condition. Any thread; not recursive. The thread that acquired it releases
/// it. The lock is then handed to the first thread that waits for its condition.
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
  /// The same, but it gives up when `cancelled` answers true. It answers whether the lock was acquired.
  /// `cancelled` is asked whenever the lock cannot be had at once, and again after each `wake`, with the
  /// lock's inner mutex held.
  bool lockWhenCondition(int condition, const std::function<bool()>& cancelled) KELDANE_TRY_ACQUIRE(true);

  /// Releases the lock and leaves the condition as it is. The object must live until the call returns: the
  /// next owner of the lock may run before it does.
  void unlock() KELDANE_RELEASE();
  /// Releases the lock with a new condition.
  void unlockWithCondition(int condition) KELDANE_RELEASE();

  /// Lets every cancellable waiter ask its question again.
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

  mutable std::mutex mutex_;  // held for moments only
  // The waiting threads, in the order in which they came. While nobody holds the lock, none of them waits for
  // the condition that it has.
  Waiter* waiting_ = nullptr;
  int condition_;
  bool held_ = false;
  [[no_unique_address]] LockRecord record_;
};

}  // namespace keldane
