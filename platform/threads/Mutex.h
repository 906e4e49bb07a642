// std::mutex and its recursive relative with the annotations that clang's thread-safety analysis reads, and
// with a record of the order in which they are taken where that is built in.
#pragma once

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
      record_.taken();  // who does not wait makes no order
    }
    return isTaken;
  }
  void unlock() KELDANE_RELEASE() {
    record_.released();
    mutex_.unlock();
  }
  const LockRecord& record() const { return record_; }

 private:
  std::mutex mutex_;
  [[no_unique_address]] LockRecord record_;
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
  /// Of what this thread has locked already.
  ScopedLock(Lockable& lockable, std::adopt_lock_t) KELDANE_REQUIRES(lockable) : lockable_(lockable) {}
  ~ScopedLock() KELDANE_RELEASE() { lockable_.unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Lockable& lockable_;
};

}  // namespace keldane
