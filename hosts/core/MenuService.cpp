#include "hosts/core/MenuService.h"

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "hosts/core/MenuHost.h"
#include "platform/bundle/Bundle.h"
#include "platform/host/Host.h"
#include "platform/runloop/RunLoop.h"
#include "platform/syslog/SystemLog.h"
#include "platform/threads/Mutex.h"
#include "platform/threads/SignalsBlocked.h"

namespace keldane {

namespace {

using Clock = std::chrono::steady_clock;

/// The time for which a menu that nobody holds stays open. Toolkits drop their items and ask again for the
/// same menu.
constexpr RunLoop::Seconds kLinger{1.0};
/// The time for which a menu that came late is kept for the next opening.
constexpr RunLoop::Seconds kUnseenLife{30.0};
constexpr auto kLongestFarewell = std::chrono::milliseconds(200);
constexpr RunLoop::Seconds kLongTime{3600.0};

constexpr char kNotResponding[] = "Keldane is not responding";

}  // namespace

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
  Worker(std::string bundle, Patience patience) : bundle_(std::move(bundle)), patience_(patience) {}

  /// Returns when the thread runs or could not be started. The next menu tries again, because the system may
  /// have a thread and descriptors for it then.
  void start() {
    const ScopedLock guard(mutex_);
    thread_ = ThreadState::starting;
    const auto begin = [this] {
      const SignalsBlocked blocked;
      std::thread([self = shared_from_this()] { self->run(); }).detach();
    };
    if (!guarded(begin)) {
      thread_ = ThreadState::stopped;
    }
    changed_.wait(mutex_, [this]() KELDANE_REQUIRES(mutex_) { return thread_ != ThreadState::starting; });
  }

  /// Does not wait for a thread that is stuck in the plug-in.
  void end() {
    setListener(nullptr);
    const ScopedLock guard(mutex_);
    if (thread_ == ThreadState::running) {
      thread_ = ThreadState::ending;
      loop_->perform([] { RunLoop::current().stop(); });
    }
    changed_.waitFor(mutex_, kLongestFarewell,
                     [this]() KELDANE_REQUIRES(mutex_) { return thread_ == ThreadState::stopped; });
  }

  // The swap leaves the former listener in the parameter, which is destroyed after the lock is released.
  void setListener(std::function<void()> listener) KELDANE_EXCLUDES(mutex_, listenerMutex_) {
    const ScopedLock guard(listenerMutex_);
    listener_.swap(listener);
  }

  std::shared_ptr<const OfferedMenu> ask(const std::vector<std::string>& paths) {
    if (threadState() == ThreadState::stopped) {
      start();
    }
    const ScopedLock guard(mutex_);
    if (thread_ != ThreadState::running) {
      return nullptr;
    }
    if (std::shared_ptr<const OfferedMenu> known = leaseOf(paths)) {
      return known;
    }
    const std::uint64_t number = request(paths);
    // A stuck plug-in is not waited for again, because the window has already waited once.
    const bool isStuck = current_ && Clock::now() - currentSince_ > patience_;
    const auto isThere = [&]() KELDANE_REQUIRES(mutex_) { return offered_ && offered_->number >= number; };
    if (!isStuck && changed_.waitFor(mutex_, patience_, isThere)) {
      return leaseOf(paths);
    }
    awaited_ = number;
    return nullptr;
  }

  std::shared_ptr<const OfferedMenu> remembered(const std::vector<std::string>& paths) {
    const ScopedLock guard(mutex_);
    return leaseOf(paths);
  }

  void forget() {
    const ScopedLock guard(mutex_);
    if (!isUnseen()) {
      offered_.reset();
    }
    unseenUntil_.reset();
  }

  void choose(const OfferedMenu& menu, std::uint32_t command) {
    const ScopedLock guard(mutex_);
    if (loop_ != nullptr) {
      loop_->perform([this, menu, command] { carryOut(menu, command); });
    }
  }

  std::string notRespondingTitle() {
    const ScopedLock guard(mutex_);
    return notRespondingTitle_;
  }

 private:
  enum class ThreadState { stopped, starting, running, ending };

  /// A lease is held by whoever shows a menu, for as long as the menu's items can be chosen.
  struct Lease {
    Lease(std::shared_ptr<Worker> lender, std::shared_ptr<const OfferedMenu> leased)
        : worker(std::move(lender)), menu(std::move(leased)) {}
    ~Lease() { worker->endLease(); }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    const std::shared_ptr<Worker> worker;
    const std::shared_ptr<const OfferedMenu> menu;
  };

  // --- On either thread ---

  /// The remembered menu with a lease; null when it is not the menu of these paths.
  std::shared_ptr<const OfferedMenu> leaseOf(const std::vector<std::string>& paths) KELDANE_REQUIRES(mutex_) {
    if (!offered_ || offered_->paths != paths) {
      return nullptr;
    }
    const auto lease = std::make_shared<const Lease>(shared_from_this(), offered_);
    ++leases_;
    return {lease, lease->menu.get()};
  }

  /// Whether the remembered menu came late, and the next opening may still show it.
  bool isUnseen() const KELDANE_REQUIRES(mutex_) {
    return offered_ && unseenUntil_ && Clock::now() < *unseenUntil_;
  }

  /// The number of the examination that will answer. It is the one under way or the next.
  std::uint64_t request(const std::vector<std::string>& paths) KELDANE_REQUIRES(mutex_) {
    if (current_ && !next_ && current_->paths == paths) {
      return current_->number;
    }
    if (!next_) {
      loop_->perform([this] { examineNext(); });
    }
    if (!next_ || next_->paths != paths) {
      next_ = std::make_shared<OfferedMenu>();
      next_->number = ++lastNumber_;
      next_->paths = paths;
    }
    return next_->number;
  }

  ThreadState threadState() {
    const ScopedLock guard(mutex_);
    return thread_;
  }

  // --- On the window's thread ---

  void endLease() {
    const ScopedLock guard(mutex_);
    if (--leases_ == 0 && thread_ == ThreadState::running) {
      loop_->perform([this] { endCycleIn(kLinger); });
    }
  }

  // --- On the plug-in's thread ---

  void run() {
    guarded([this] { serve(); });
    {
      const ScopedLock guard(mutex_);
      loop_ = nullptr;
      thread_ = ThreadState::stopped;
    }
    changed_.notifyAll();
  }

  void serve() {
    Host& host = Host::shared();
    host.declareMainThread();
    host.setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    host.setContextualMenuAttributes(gestaltContextualMenuHasAttributeAndModifierKeys);
    RunLoop& loop = RunLoop::current();
    {
      const ScopedLock guard(mutex_);
      loop_ = &loop;
      thread_ = ThreadState::running;
    }
    changed_.notifyAll();
    while (threadState() != ThreadState::ending) {
      loop.run(kLongTime);
    }
    plugIn_.reset();
  }

  void examineNext() {
    std::shared_ptr<OfferedMenu> menu;
    {
      const ScopedLock guard(mutex_);
      menu = current_ = std::exchange(next_, nullptr);
      currentSince_ = Clock::now();
    }
    if (!menu || threadState() == ThreadState::ending) {
      return;
    }
    std::vector<MenuItem> items = examine(*menu);
    bool isLate = false;
    {
      const ScopedLock guard(mutex_);
      menu->items = std::move(items);
      current_.reset();
      if (!next_) {  // a newer selection makes this menu out of date
        offered_ = menu;
        isLate = awaited_ == menu->number;
        unseenUntil_.reset();
      }
      if (isLate) {
        unseenUntil_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(kUnseenLife);
      }
    }
    changed_.notifyAll();
    if (isLate) {
      endCycleIn(kUnseenLife);
      const ScopedLock guard(listenerMutex_);
      if (listener_) {
        listener_();
      }
    }
  }

  /// Ends the open cycle and begins the cycle of this menu.
  std::vector<MenuItem> examine(const OfferedMenu& menu) {
    std::vector<MenuItem> items;
    guarded([&] {
      if (load()) {
        plugIn_->cleanup();
        open_ = menu.number;
        items = plugIn_->examine(selectionOf(menu)).menu;
      }
    });
    return items;
  }

  void carryOut(const OfferedMenu& menu, std::uint32_t command) {
    guarded([&] {
      if (menu.number == chosen_ || !load()) {
        return;
      }
      chosen_ = menu.number;
      if (open_ != menu.number) {
        examine(menu);  // its cycle has ended meanwhile, and a command needs one
      }
      plugIn_->select(selectionOf(menu), command);
    });
    endCycle(menu.number);
  }

  /// Catches and logs what the plug-in throws, so that it does not reach the host. False when something was
  /// thrown.
  template <class Work>
  static bool guarded(const Work& work) {
    try {
      work();
      return true;
    } catch (const std::exception& error) {
      systemLog("A menu could not be made or carried out: %s", error.what());
      return false;
    }
  }

  /// Ends the open cycle after the delay, unless somebody then has a lease or the menu is still unseen. The
  /// timer holds a weak pointer, because the main run loop may outlive this object.
  void endCycleIn(RunLoop::Seconds delay) {
    RunLoop::current().scheduleTimer(delay, false, [weak = weak_from_this(), number = open_](Timer&) {
      if (const std::shared_ptr<Worker> self = weak.lock(); self && !self->isWanted()) {
        self->endCycle(number);
      }
    });
  }

  bool isWanted() {
    const ScopedLock guard(mutex_);
    return leases_ > 0 || isUnseen();
  }

  void endCycle(std::uint64_t number) {
    {
      const ScopedLock guard(mutex_);
      if (offered_ && offered_->number == number) {
        offered_.reset();
      }
    }
    if (plugIn_ && open_ == number) {
      plugIn_->cleanup();
      open_ = 0;
    }
  }

  /// False when there is no plug-in. The reason is logged once, and the next menu tries again.
  bool load() {
    if (plugIn_) {
      return true;
    }
    auto plugIn = std::make_unique<MenuHost>();
    std::string error;
    if (!plugIn->load(bundle_, &error)) {
      if (!complained_) {
        systemLog("%s", error.c_str());
        complained_ = true;
      }
      return false;
    }
    plugIn_ = std::move(plugIn);
    const std::string title = plugIn_->bundle()->localizedStringForKey(kNotResponding, kNotResponding);
    const ScopedLock guard(mutex_);
    notRespondingTitle_ = title;
    return true;
  }

  static Selection selectionOf(const OfferedMenu& menu) {
    Selection selection;
    selection.paths = menu.paths;
    return selection;
  }

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
  std::string notRespondingTitle_ KELDANE_GUARDED_BY(mutex_) = kNotResponding;

  Mutex listenerMutex_{{.name = "MenuService.listenerMutex"}};
  std::function<void()> listener_ KELDANE_GUARDED_BY(listenerMutex_);

  // These fields are used only by the plug-in's thread.
  std::unique_ptr<MenuHost> plugIn_;
  std::uint64_t open_ = 0;    // the menu whose cycle is open
  std::uint64_t chosen_ = 0;  // the menu that a command was last chosen from
  bool complained_ = false;
};

MenuService::Patience MenuService::configuredPatience() {
  const char* text = std::getenv("KELDANE_MENU_PATIENCE");
  const std::string_view digits = text == nullptr ? "" : text;
  int milliseconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), milliseconds);
  const bool isMeant = error == std::errc() && end == digits.data() + digits.size() && milliseconds >= 1 &&
                       milliseconds <= 60000;
  return isMeant ? Patience(milliseconds) : kUsualPatience;
}

MenuService::MenuService(std::string bundle, Patience patience)
    : worker_(std::make_shared<Worker>(std::move(bundle), patience)) {
  worker_->start();
}

MenuService::~MenuService() { worker_->end(); }

void MenuService::setLateListener(std::function<void()> listener) {
  worker_->setListener(std::move(listener));
}

std::shared_ptr<const OfferedMenu> MenuService::menuFor(const std::vector<std::string>& paths) {
  return worker_->ask(paths);
}

std::shared_ptr<const OfferedMenu> MenuService::rememberedMenuFor(
    const std::vector<std::string>& paths) const {
  return worker_->remembered(paths);
}

void MenuService::forget() { worker_->forget(); }

void MenuService::choose(const OfferedMenu& menu, std::uint32_t command) { worker_->choose(menu, command); }

std::string MenuService::notRespondingTitle() const { return worker_->notRespondingTitle(); }

}  // namespace keldane
