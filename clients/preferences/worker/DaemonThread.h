// The thread on which the program waits for the daemon, so that its window never has to.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "clients/preferences/worker/DaemonSession.h"

namespace keldane {

/// Runs a DaemonSession on a thread of its own, which is the platform's main thread while it lives: one at a
/// time in a process. The session's deliveries are made on that thread. Owned by the program's first thread,
/// on which all of this is called.
///
/// The daemon may never answer. So the thread is not waited for without a limit: one that is stuck is left
/// behind, and then the process may only be ended at once (see `end`).
class DaemonThread {
 public:
  DaemonThread(std::shared_ptr<Bundle> bundle, DaemonSession::Deliver deliver);
  ~DaemonThread();
  DaemonThread(const DaemonThread&) = delete;
  DaemonThread& operator=(const DaemonThread&) = delete;

  /// Does this on the thread, after what was wanted before.
  void perform(std::function<void(DaemonSession&)> work);
  /// For how long the thread has been busy with one and the same thing: 1 second when it is idle, at most.
  std::chrono::steady_clock::duration silence() const;
  /// Ends the session; false when the thread has not come to it within this time. Nothing is delivered after
  /// true.
  bool end(std::chrono::milliseconds patience);

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace keldane
