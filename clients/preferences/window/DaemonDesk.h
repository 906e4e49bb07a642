// Where the window's pages hand in what they want of the daemon.
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

/// Four threads wait for the daemon in the window's stead: one follows its state and its trees, one asks the
/// second socket what is answered at once, one what takes long, one what takes longest. All of this is called
/// on the window's thread, and so are `receive` and what is done with answers.
class DaemonDesk {
 public:
  DaemonDesk(const DaemonBundle& daemon, std::function<void(const Update&)> receive);

  /// Does this on the thread that follows the daemon.
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
  /// Does work that the disk may hold up on a thread of its own, and then what it answers on the window's.
  void aside(std::function<std::function<void()>()> work);
  /// What was in a folder of the backup at a time, for the thread that follows the daemon.
  NodeTree::Past pastAt(double time) const;
  /// For how long the daemon has let the first thread wait; see DaemonThread.
  std::chrono::steady_clock::duration silence() const { return follower_.silence(); }

  /// Ends the threads; false when one hangs. Then the process is to be ended at once.
  bool end();

 private:
  const std::string socketPath_;
  const std::shared_ptr<Mailbox> mailbox_;
  DaemonThread follower_;
  OwnerThread quick_, slow_, slowest_;
};

/// Why there is no answer, as a sentence for a person; empty when there is one.
std::string problemOf(const OwnerAnswer& answer);

}  // namespace keldane
