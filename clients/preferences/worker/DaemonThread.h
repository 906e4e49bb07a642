// The thread on which the program waits for the daemon, so that its window never has to.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "clients/preferences/worker/DaemonSession.h"

namespace keldane {

/// Runs a DaemonSession on a thread of its own. That thread is the platform's main thread while it lives, so
/// there can be one at a time in a process. The session delivers its updates on that thread. Owned by the
/// program's first thread, on which all operations are called.
///
/// The daemon may never answer, so no call waits for the thread without a limit. A thread that is stuck is
/// left behind, and then the process may only be ended at once (see `end`).
class DaemonThread {
 public:
  DaemonThread(std::shared_ptr<Bundle> bundle, DaemonSession::Deliver deliver);
  ~DaemonThread();
  DaemonThread(const DaemonThread&) = delete;
  DaemonThread& operator=(const DaemonThread&) = delete;

  /// Runs `work` on the thread, after all work that was handed in before.
  void perform(std::function<void(DaemonSession&)> work);
  /// The time for which the thread has been busy with the same piece of work; at most 1 second when it is
  /// idle.
  std::chrono::steady_clock::duration silence() const;
  /// Ends the session. Returns false when the thread has not ended it within this time. Nothing is delivered
  /// after a return of true.
  bool end(std::chrono::milliseconds patience);

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace keldane
