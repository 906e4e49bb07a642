#include "platform/threads/ConditionLock.h"

#include <semaphore.h>

#include <atomic>

namespace keldane {

/// A thread that waits. A condition variable would cost more: a thread that it wakes must take a mutex that
/// is contended at that moment, which costs another system call, and two wake-ups before the thread runs cost
/// two system calls.
struct ConditionLock::Waiter {
  enum State { asleep, woken, owner };

  explicit Waiter(const int* wanted) : condition(wanted) { sem_init(&wakeUps, 0, 0); }
  ~Waiter() { sem_destroy(&wakeUps); }
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  /// After a call with `owner`, no other thread uses the waiter any more.
  void wake(State why) {
    if (state.exchange(why) == asleep) {
      sem_post(&wakeUps);
    }
  }

  /// Whether it owns the lock now; if not, it was only woken.
  bool sleep() {
    while (sem_wait(&wakeUps) != 0) {  // a signal came
    }
    State seen = woken;
    return !state.compare_exchange_strong(seen, asleep);
  }

  const int* const condition;  ///< null for any condition
  Waiter* next = nullptr;
  std::atomic<State> state = asleep;
  sem_t wakeUps;  ///< posted once each time that the thread sleeps
};

template <class Predicate>
ConditionLock::Waiter** ConditionLock::find(const Predicate& isSuch) {
  Waiter** place = &waiting_;
  while (*place != nullptr && !isSuch(**place)) {
    place = &(*place)->next;
  }
  return place;
}

bool ConditionLock::acquire(const int* condition, const std::function<bool()>* cancelled) {
  std::unique_lock guard(mutex_);
  if (!held_ && isFor(condition)) {
    held_ = true;
    return true;
  }
  if (cancelled != nullptr && (*cancelled)()) {
    return false;
  }
  Waiter self(condition);
  *find([](const Waiter&) { return false; }) = &self;
  guard.unlock();
  while (!self.sleep()) {
    if (cancelled == nullptr) {
      continue;
    }
    const std::lock_guard asking(mutex_);
    Waiter** const place = find([&](const Waiter& waiter) { return &waiter == &self; });
    if (*place != nullptr && (*cancelled)()) {  // otherwise the lock is already being handed over
      *place = self.next;
      return false;
    }
  }
  return true;
}

void ConditionLock::release(const int* condition) {
  record_.released();
  Waiter* heir = nullptr;
  {
    const std::lock_guard guard(mutex_);
    condition_ = condition == nullptr ? condition_ : *condition;
    Waiter** const place = find([&](const Waiter& waiter) { return isFor(waiter.condition); });
    heir = *place;
    held_ = heir != nullptr;
    if (held_) {
      *place = heir->next;
    }
  }
  // Called after the mutex was released, because the woken thread may run at once.
  if (heir != nullptr) {
    heir->wake(Waiter::owner);
  }
}

void ConditionLock::lock() {
  record_.willTake();
  acquire(nullptr, nullptr);
  record_.taken();
}

void ConditionLock::lockWhenCondition(int condition) {
  record_.willWait();
  acquire(&condition, nullptr);
  record_.taken();
}

bool ConditionLock::lockWhenCondition(int condition, const std::function<bool()>& cancelled) {
  record_.willWait();
  const bool isTaken = acquire(&condition, &cancelled);
  if (isTaken) {
    record_.taken();
  }
  return isTaken;
}

void ConditionLock::unlock() { release(nullptr); }

void ConditionLock::unlockWithCondition(int condition) { release(&condition); }

void ConditionLock::wake() {
  // While the mutex is held, no waiter is between its call of `cancelled` and its sleep, and none leaves the
  // list.
  const std::lock_guard guard(mutex_);
  for (Waiter* waiter = waiting_; waiter != nullptr; waiter = waiter->next) {
    waiter->wake(Waiter::woken);
  }
}

int ConditionLock::condition() const {
  const std::lock_guard guard(mutex_);
  return condition_;
}

}  // namespace keldane
