// Finds deadlocks before they happen: notes in which order each thread takes its locks, and raises the alarm
// when two threads could come to wait for each other, whether or not they do this time.
#pragma once

#include <functional>
#include <string>

namespace keldane {

/// What the owner of a lock says of it.
struct LockTraits {
  const char* name = "a lock";
  bool leaf = false;              ///< nothing is taken while it is held, but an innermost one
  bool innermost = false;         ///< a leaf that a service takes for a moment, whatever its caller holds
  bool heldWhileWaiting = false;  ///< a thread may hold it while it waits for the condition of another lock
};

#if defined(KELDANE_LOCK_ORDER)

/// Who hears of findings. Process-wide; any thread.
class LockOrder {
 public:
  /// Called on the thread that is about to take the lock, before it does.
  using Listener = std::function<void(const std::string& finding)>;

  /// An empty one restores the default: the finding is written to standard error, and the process aborts.
  static void setListener(Listener listener);
  /// From now on no order is noted, which takes memory; for a process that counts what it allocates.
  static void stop();
};

/// The part of a lock that is noted. Of each thread it keeps the locks that it holds, and of each lock those
/// that were ever taken while it was held, until one of the two goes. A lock that leads back, over any number
/// of others, to one that the thread holds is a finding, which names the locks that the threads held on
/// either way. So is a second acquisition of what is held already, anything taken under a leaf, but an
/// innermost lock under one that is not innermost itself, and a wait for a condition under a lock that is not
/// made for it. Any thread; noted under one lock for the process, so that it is built in for tests only.
class LockRecord {
 public:
  explicit LockRecord(LockTraits traits) : traits_(traits) {}
  ~LockRecord();
  LockRecord(const LockRecord&) = delete;
  LockRecord& operator=(const LockRecord&) = delete;

  /// States that a thread which holds both takes this one first.
  void comesBefore(const LockRecord& later) const;
  /// The thread is about to take it.
  void willTake() const;
  /// The same, of a lock that may be taken again by the thread that holds it.
  void willTakeAgain() const;
  /// The thread is about to wait until it has a condition, and to take it.
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
