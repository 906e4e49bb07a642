// Finds deadlocks before they happen. It records the order in which each thread takes its locks, and reports
// when two threads could wait for each other, even if they do not this time.
#pragma once

#include <functional>
#include <string>

namespace keldane {

/// Properties of a lock that its owner states.
struct LockTraits {
  const char* name = "a lock";
  bool leaf = false;              ///< no lock but an innermost one is taken while it is held
  bool innermost = false;         ///< a leaf that a service takes briefly, whatever locks its caller holds
  bool heldWhileWaiting = false;  ///< a thread may hold it while it waits for the condition of another lock
};

#if defined(KELDANE_LOCK_ORDER)

/// The settings of the record, for the whole process. Any thread may change them.
class LockOrder {
 public:
  /// The listener is called on the thread that is about to take the lock, before it takes it.
  using Listener = std::function<void(const std::string& finding)>;

  /// Sets the listener that is told of findings. An empty function restores the default: the finding is
  /// written to standard error, and the process aborts.
  static void setListener(Listener listener);
  /// Stops the record, which takes memory. This is for a process that counts its allocations.
  static void stop();
};

/// The part of a lock that takes part in the record. The record knows the locks that each thread holds, and
/// for each lock the locks that were ever taken while it was held. A finding is one of these: a thread takes
/// a lock from which such steps lead back, over any number of other locks, to a lock that it holds already;
/// it takes a lock that it holds already; it takes any lock under a leaf, except an innermost lock under a
/// leaf that is not innermost; or it waits for a condition under a lock that is not meant for that. A finding
/// names the locks that the threads held. Any thread may call it. One lock for the whole process guards the
/// record, so it is built in for tests only.
class LockRecord {
 public:
  explicit LockRecord(LockTraits traits) : traits_(traits) {}
  ~LockRecord();
  LockRecord(const LockRecord&) = delete;
  LockRecord& operator=(const LockRecord&) = delete;

  /// States that a thread which holds both takes this one first.
  void comesBefore(const LockRecord& later) const;
  /// Called when the thread is about to take the lock.
  void willTake() const;
  /// The same for a lock that its holder may take again.
  void willTakeAgain() const;
  /// Called when the thread is about to wait for the lock's condition and to take the lock then.
  void willWait() const;
  void taken() const;
  void released() const;

 private:
  LockTraits traits_;
};

#else

class LockRecord {
 public:
  explicit constexpr LockRecord(const LockTraits&) {}
  void comesBefore(const LockRecord&) const {}
  void willTake() const {}
  void willTakeAgain() const {}
  void willWait() const {}
  void taken() const {}
  void released() const {}
};

#endif

}  // namespace keldane
