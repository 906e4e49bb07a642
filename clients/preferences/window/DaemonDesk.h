// The place where the window's pages hand in their requests to the daemon.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "clients/core/DaemonBundle.h"
#include "clients/preferences/window/Mailbox.h"
#include "clients/preferences/worker/DaemonThread.h"
#include "clients/preferences/worker/OwnerThread.h"

namespace keldane {

/// Four threads wait for the daemon so that the window does not: one follows its state and its trees, and
/// three ask the second socket, one for quick answers, one for work of minutes, one for work of hours. All
/// operations are called on the window's thread; `receive` and the callbacks for answers are called there,
/// too.
class DaemonDesk {
 public:
  DaemonDesk(const DaemonBundle& daemon, std::function<void(const Update&)> receive);

  /// Runs this on the thread that follows the daemon.
  void perform(std::function<void(DaemonSession&)> work) { follower_.perform(std::move(work)); }
  void ask(std::string_view selector, PropertyList::Entries request, OwnerThread::Then then) {
    quick_.ask(selector, std::move(request), std::move(then));
  }
  void askForLong(std::string_view selector, PropertyList::Entries request, OwnerThread::Then then) {
    slow_.ask(selector, std::move(request), std::move(then));
  }
  /// Asks on a thread of its own for work that takes hours, so that work of minutes does not wait for it.
  void askForLongest(std::string_view selector, PropertyList::Entries request, OwnerThread::Then then) {
    slowest_.ask(selector, std::move(request), std::move(then));
  }
  /// Runs work that the disk may delay on a thread of its own, then runs the function that it returns on the
  /// window's thread.
  void aside(std::function<std::function<void()>()> work);
  /// Returns a function that tells what a folder of the backup held at a time; the thread that follows the
  /// daemon calls it.
  NodeTree::Past pastAt(double time) const;
  /// The time for which the daemon has kept the following thread waiting; see DaemonThread.
  std::chrono::steady_clock::duration silence() const { return follower_.silence(); }

  /// Ends the threads. Returns false when one hangs; the process is then to be ended at once.
  bool end();

 private:
  const std::string socketPath_;
  const std::shared_ptr<Mailbox> mailbox_;
  DaemonThread follower_;
  OwnerThread quick_, slow_, slowest_;
};

/// The reason why there is no answer, as a sentence for a person; empty when there is an answer.
std::string problemOf(const OwnerAnswer& answer);

}  // namespace keldane
