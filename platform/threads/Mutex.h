// The locks of the project. They are std::mutex and std::recursive_mutex with the annotations for clang's
// thread-safety analysis, and with a record of the order in which they are taken where that is built in.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/threads/Annotations.h"
#include "platform/threads/LockOrder.h"

namespace keldane {

class KELDANE_CAPABILITY("mutex") Mutex {
 public:
  Mutex() : Mutex(LockTraits()) {}
  explicit Mutex(const LockTraits& traits) : record_(traits) {}

  void lock() KELDANE_ACQUIRE() {
    record_.willTake();
    mutex_.lock();
    record_.taken();
  }
  bool try_lock() KELDANE_TRY_ACQUIRE(true) {
    const bool isTaken = mutex_.try_lock();
    if (isTaken) {
      record_.taken();  // an attempt that does not wait cannot end in a deadlock, so it makes no order
    }
    return isTaken;
  }
  void unlock() KELDANE_RELEASE() {
    record_.released();
    mutex_.unlock();
  }
  const LockRecord& record() const { return record_; }

 private:
  friend class Condition;
  std::mutex mutex_;
  [[no_unique_address]] LockRecord record_;
};

/// A condition variable for a Mutex. While a thread waits, it holds no other lock than those with
/// `heldWhileWaiting`. The predicates are called with the mutex held.
class Condition {
 public:
  template <class Predicate>
  void wait(Mutex& mutex, const Predicate& isTrue) KELDANE_REQUIRES(mutex) {
    released(mutex, [&](std::unique_lock<std::mutex>& lock) { condition_.wait(lock, isTrue); });
  }
  /// Waits no longer than `duration`. Returns the predicate's last result.
  template <class Duration, class Predicate>
  bool waitFor(Mutex& mutex, const Duration& duration, const Predicate& isTrue) KELDANE_REQUIRES(mutex) {
    bool answer = false;
    released(mutex, [&](std::unique_lock<std::mutex>& lock) {
      answer = condition_.wait_for(lock, duration, isTrue);
    });
    return answer;
  }
  /// Waits until `time` at most. Returns the predicate's last result.
  template <class Time, class Predicate>
  bool waitUntil(Mutex& mutex, const Time& time, const Predicate& isTrue) KELDANE_REQUIRES(mutex) {
    bool answer = false;
    released(mutex,
             [&](std::unique_lock<std::mutex>& lock) { answer = condition_.wait_until(lock, time, isTrue); });
    return answer;
  }
  void notifyAll() { condition_.notify_all(); }

 private:
  /// Takes the mutex out of the record while the work waits.
  template <class Work>
  static void released(Mutex& mutex, const Work& work) {
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    mutex.record_.released();
    mutex.record_.willWait();
    work(lock);
    mutex.record_.taken();
    lock.release();
  }

  std::condition_variable condition_;
};

/// An object's own monitor: the thread that holds it may take it again.
class KELDANE_CAPABILITY("mutex") Monitor {
 public:
  Monitor() : Monitor(LockTraits()) {}
  explicit Monitor(const LockTraits& traits) : record_(traits) {}

  void lock() KELDANE_ACQUIRE() {
    record_.willTakeAgain();
    mutex_.lock();
    record_.taken();
  }
  void unlock() KELDANE_RELEASE() {
    record_.released();
    mutex_.unlock();
  }
  const LockRecord& record() const { return record_; }

 private:
  std::recursive_mutex mutex_;
  [[no_unique_address]] LockRecord record_;
};

/// Holds a Mutex or a Monitor for the length of a scope.
template <class Lockable>
class KELDANE_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lockable& lockable) KELDANE_ACQUIRE(lockable) : lockable_(lockable) {
    lockable_.lock();
  }
  /// Takes over a lock that this thread has acquired already.
  ScopedLock(Lockable& lockable, std::adopt_lock_t) KELDANE_REQUIRES(lockable) : lockable_(lockable) {}
  ~ScopedLock() KELDANE_RELEASE() { lockable_.unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Lockable& lockable_;
};

}  // namespace keldane
