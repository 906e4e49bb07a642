// std::mutex and its recursive relative with the annotations that clang's thread-safety analysis reads.
#pragma once

#include <mutex>

#include "platform/threads/Annotations.h"

namespace keldane {

class KELDANE_CAPABILITY("mutex") Mutex {
 public:
  void lock() KELDANE_ACQUIRE() { mutex_.lock(); }
  bool try_lock() KELDANE_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
  void unlock() KELDANE_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// An object's own monitor: the thread that holds it may take it again.
class KELDANE_CAPABILITY("mutex") Monitor {
 public:
  void lock() KELDANE_ACQUIRE() { mutex_.lock(); }
  void unlock() KELDANE_RELEASE() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

/// Holds a Mutex or a Monitor for the length of a scope.
template <class Lockable>
class KELDANE_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lockable& lockable) KELDANE_ACQUIRE(lockable) : lockable_(lockable) {
    lockable_.lock();
  }
  ~ScopedLock() KELDANE_RELEASE() { lockable_.unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Lockable& lockable_;
};

}  // namespace keldane
