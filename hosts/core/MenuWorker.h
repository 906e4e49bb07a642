// The thread behind MenuService.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/core/MenuHost.h"
#include "hosts/core/MenuService.h"
#include "platform/runloop/RunLoop.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The plug-in's thread, and the fields that it shares with the window's thread under the mutex. Three things
/// have states.
///
/// The thread (`thread_`) is stopped, then starting, then running when its run loop is known, then ending
/// when the service is destroyed, then stopped again. A thread that an exception ended is stopped too, and
/// the next question starts it again.
///
/// One examination may be under way (`current_`). One more may wait for its end (`next_`); a call of
/// `examineNext` is then queued in the run loop. A newer selection takes the place of the one that waits.
///
/// Whoever shows the menu that is remembered (`offered_`) has a lease. The menu is unseen while it came too
/// late for the question that it answers and no later opening has used it (`unseenUntil_`). The plug-in's
/// cycle of this menu ends a moment after the last lease, unless the menu is unseen.
///
/// `listenerMutex_` is held while the listener is called, so that whoever replaces the listener waits for
/// that call. `mutex_` is not held then.
class MenuService::Worker : public std::enable_shared_from_this<MenuService::Worker> {
 public:
  Worker(std::string bundle, Patience patience);

  /// Returns when the thread runs or could not be started. The next menu tries again, because the system may
  /// have a thread and descriptors for it then.
  void start() KELDANE_EXCLUDES(mutex_);
  /// Does not wait for a thread that is stuck in the plug-in.
  void end() KELDANE_EXCLUDES(mutex_, listenerMutex_);
  void setListener(std::function<void()> listener) KELDANE_EXCLUDES(mutex_, listenerMutex_);
  std::shared_ptr<const OfferedMenu> ask(const std::vector<std::string>& paths) KELDANE_EXCLUDES(mutex_);
  std::shared_ptr<const OfferedMenu> remembered(const std::vector<std::string>& paths)
      KELDANE_EXCLUDES(mutex_);
  void forget() KELDANE_EXCLUDES(mutex_);
  void choose(const OfferedMenu& menu, std::uint32_t command) KELDANE_EXCLUDES(mutex_);
  std::string notRespondingTitle() KELDANE_EXCLUDES(mutex_);

 private:
  using Clock = std::chrono::steady_clock;
  enum class ThreadState { stopped, starting, running, ending };
  struct Lease;

  // --- On either thread ---
  /// The remembered menu with a lease; null when it is not the menu of these paths.
  std::shared_ptr<const OfferedMenu> leaseOf(const std::vector<std::string>& paths) KELDANE_REQUIRES(mutex_);
  /// Whether the remembered menu came late, and the next opening may still show it.
  bool isUnseen() const KELDANE_REQUIRES(mutex_);
  /// The number of the examination that will answer. It is the one under way or the next.
  std::uint64_t request(const std::vector<std::string>& paths) KELDANE_REQUIRES(mutex_);
  ThreadState threadState() KELDANE_EXCLUDES(mutex_);

  // --- On the window's thread ---
  void endLease() KELDANE_EXCLUDES(mutex_);

  // --- On the plug-in's thread ---
  void run() KELDANE_EXCLUDES(mutex_);
  void serve() KELDANE_EXCLUDES(mutex_);
  void examineNext() KELDANE_EXCLUDES(mutex_, listenerMutex_);
  /// Ends the open cycle and begins the cycle of this menu.
  std::vector<MenuItem> examine(const OfferedMenu& menu);
  void carryOut(const OfferedMenu& menu, std::uint32_t command);
  /// Ends the open cycle after the delay, unless somebody then has a lease or the menu is still unseen. The
  /// timer holds a weak pointer, because the main run loop may outlive this object.
  void endCycleIn(RunLoop::Seconds delay);
  bool isWanted() KELDANE_EXCLUDES(mutex_);
  void endCycle(std::uint64_t number) KELDANE_EXCLUDES(mutex_);
  /// False when there is no plug-in. The reason is logged once, and the next menu tries again.
  bool load() KELDANE_EXCLUDES(mutex_);

  const std::string bundle_;
  const Patience patience_;

  Mutex mutex_{{.name = "MenuService.mutex"}};
  Condition changed_;  // signalled when the thread's state or the remembered menu changes
  ThreadState thread_ KELDANE_GUARDED_BY(mutex_) = ThreadState::stopped;
  RunLoop* loop_ KELDANE_GUARDED_BY(mutex_) = nullptr;  // set while the thread is running or ending
  std::shared_ptr<OfferedMenu> next_ KELDANE_GUARDED_BY(mutex_);
  std::shared_ptr<OfferedMenu> current_ KELDANE_GUARDED_BY(mutex_);
  Clock::time_point currentSince_ KELDANE_GUARDED_BY(mutex_);
  std::uint64_t lastNumber_ KELDANE_GUARDED_BY(mutex_) = 0;
  // The number of the last examination whose end the window did not wait for.
  std::uint64_t awaited_ KELDANE_GUARDED_BY(mutex_) = 0;
  std::shared_ptr<const OfferedMenu> offered_ KELDANE_GUARDED_BY(mutex_);
  std::optional<Clock::time_point> unseenUntil_ KELDANE_GUARDED_BY(mutex_);
  std::size_t leases_ KELDANE_GUARDED_BY(mutex_) = 0;
  std::string notRespondingTitle_ KELDANE_GUARDED_BY(mutex_);

  Mutex listenerMutex_{{.name = "MenuService.listenerMutex"}};
  std::function<void()> listener_ KELDANE_GUARDED_BY(listenerMutex_);

  // These fields are used only by the plug-in's thread.
  std::unique_ptr<MenuHost> plugIn_;
  std::uint64_t open_ = 0;    // the menu whose cycle is open
  std::uint64_t chosen_ = 0;  // the menu that a command was last chosen from
  bool complained_ = false;
};

}  // namespace keldane
