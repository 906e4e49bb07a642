#include "hosts/core/MenuWorker.h"

#include <exception>
#include <thread>

#include "platform/bundle/Bundle.h"
#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "platform/threads/SignalsBlocked.h"

namespace keldane {

namespace {

/// The time for which a menu that nobody holds stays open. Toolkits drop their items and ask again for the
/// same menu.
constexpr RunLoop::Seconds kLinger{1.0};
/// The time for which a menu that came late is kept for the next opening.
constexpr RunLoop::Seconds kUnseenLife{30.0};
constexpr auto kLongestFarewell = std::chrono::milliseconds(200);
constexpr RunLoop::Seconds kLongTime{3600.0};

constexpr char kNotResponding[] = "Keldane is not responding";

/// Catches and logs what the plug-in throws, so that it does not reach the host. False when something was
/// thrown.
template <class Work>
bool guarded(const Work& work) {
  try {
    work();
    return true;
  } catch (const std::exception& error) {
    systemLog("A menu could not be made or carried out: %s", error.what());
    return false;
  }
}

Selection selectionOf(const OfferedMenu& menu) {
  Selection selection;
  selection.paths = menu.paths;
  return selection;
}

}  // namespace

/// A lease is held by whoever shows a menu, for as long as the menu's items can be chosen.
struct MenuService::Worker::Lease {
  Lease(std::shared_ptr<Worker> lender, std::shared_ptr<const OfferedMenu> leased)
      : worker(std::move(lender)), menu(std::move(leased)) {}
  ~Lease() { worker->endLease(); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  const std::shared_ptr<Worker> worker;
  const std::shared_ptr<const OfferedMenu> menu;
};

MenuService::Worker::Worker(std::string bundle, Patience patience)
    : bundle_(std::move(bundle)), patience_(patience), notRespondingTitle_(kNotResponding) {}

void MenuService::Worker::start() {
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

void MenuService::Worker::end() {
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
void MenuService::Worker::setListener(std::function<void()> listener) {
  const ScopedLock guard(listenerMutex_);
  listener_.swap(listener);
}

std::shared_ptr<const OfferedMenu> MenuService::Worker::ask(const std::vector<std::string>& paths) {
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

std::shared_ptr<const OfferedMenu> MenuService::Worker::remembered(const std::vector<std::string>& paths) {
  const ScopedLock guard(mutex_);
  return leaseOf(paths);
}

void MenuService::Worker::forget() {
  const ScopedLock guard(mutex_);
  if (!isUnseen()) {
    offered_.reset();
  }
  unseenUntil_.reset();
}

void MenuService::Worker::choose(const OfferedMenu& menu, std::uint32_t command) {
  const ScopedLock guard(mutex_);
  if (loop_ != nullptr) {
    loop_->perform([this, menu, command] { carryOut(menu, command); });
  }
}

std::string MenuService::Worker::notRespondingTitle() {
  const ScopedLock guard(mutex_);
  return notRespondingTitle_;
}

// --- On either thread ---

std::shared_ptr<const OfferedMenu> MenuService::Worker::leaseOf(const std::vector<std::string>& paths) {
  if (!offered_ || offered_->paths != paths) {
    return nullptr;
  }
  const auto lease = std::make_shared<const Lease>(shared_from_this(), offered_);
  ++leases_;
  return {lease, lease->menu.get()};
}

bool MenuService::Worker::isUnseen() const {
  return offered_ && unseenUntil_ && Clock::now() < *unseenUntil_;
}

std::uint64_t MenuService::Worker::request(const std::vector<std::string>& paths) {
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

MenuService::Worker::ThreadState MenuService::Worker::threadState() {
  const ScopedLock guard(mutex_);
  return thread_;
}

// --- On the window's thread ---

void MenuService::Worker::endLease() {
  const ScopedLock guard(mutex_);
  if (--leases_ == 0 && thread_ == ThreadState::running) {
    loop_->perform([this] { endCycleIn(kLinger); });
  }
}

// --- On the plug-in's thread ---

void MenuService::Worker::run() {
  guarded([this] { serve(); });
  {
    const ScopedLock guard(mutex_);
    loop_ = nullptr;
    thread_ = ThreadState::stopped;
  }
  changed_.notifyAll();
}

void MenuService::Worker::serve() {
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

void MenuService::Worker::examineNext() {
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

std::vector<MenuItem> MenuService::Worker::examine(const OfferedMenu& menu) {
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

void MenuService::Worker::carryOut(const OfferedMenu& menu, std::uint32_t command) {
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

void MenuService::Worker::endCycleIn(RunLoop::Seconds delay) {
  RunLoop::current().scheduleTimer(delay, false, [weak = weak_from_this(), number = open_](Timer&) {
    if (const std::shared_ptr<Worker> self = weak.lock(); self && !self->isWanted()) {
      self->endCycle(number);
    }
  });
}

bool MenuService::Worker::isWanted() {
  const ScopedLock guard(mutex_);
  return leases_ > 0 || isUnseen();
}

void MenuService::Worker::endCycle(std::uint64_t number) {
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

bool MenuService::Worker::load() {
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

}  // namespace keldane
