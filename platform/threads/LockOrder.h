// Finds deadlocks before they happen: notes the order in which each thread takes its locks, and reports when
// two threads could wait for each other, whether or not they do this time.
#pragma once

#include <functional>
#include <string>

namespace keldane {

/// Properties of a lock that its owner states.
struct LockTraits {
  const char* name = "a lock";
  bool leaf = false;              ///< no lock but an innermost one is taken while it is held
  bool innermost = false;         ///< a leaf that a service takes for a moment, whatever its caller holds
  bool heldWhileWaiting = false;  ///< a thread may hold it while it waits for the condition of another lock
};

#if defined(KELDANE_LOCK_ORDER)

/// Settings of the record, which are those of the whole process. Any thread.
class LockOrder {
 public:
  /// Called on the thread that is about to take the lock, before it does.
  using Listener = std::function<void(const std::string& finding)>;

  /// Sets who is told of findings. An empty function restores the default: the finding is written to standard
  /// error, and the process aborts.
  static void setListener(Listener listener);
  /// Stops the record, which takes memory. This is for a process that counts its allocations.
  static void stop();
};

/// The part of a lock that takes part in the record. The record knows the locks that each thread holds, and
/// for each lock the locks that were ever taken while it was held. These are findings: taking a lock from
/// which such steps lead back to a lock that the thread holds already, over any number of other locks; taking
/// a lock again that is held already; taking any lock under a leaf, except an innermost lock under a leaf
/// that is not innermost; and waiting for a condition under a lock that is not meant for it. A finding names
/// the locks that the threads held. Any thread. One lock for the whole process guards the record, so it is
/// built in for tests only.
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
