#include "hosts/core/MenuService.h"

#include <charconv>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

#include "hosts/core/MenuHost.h"
#include "platform/bundle/Bundle.h"
#include "platform/host/Host.h"
#include "platform/runloop/RunLoop.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using Clock = std::chrono::steady_clock;

/// Toolkits drop their items and ask again for the same menu; only items that stay away end the cycle.
constexpr RunLoop::Seconds kLinger{1.0};
/// How long a menu that came late is good for the next that is opened.
constexpr RunLoop::Seconds kUnseenLife{30.0};
constexpr auto kLongestFarewell = std::chrono::milliseconds(200);
constexpr RunLoop::Seconds kLongTime{3600.0};

constexpr char kNotResponding[] = "Keldane is not responding";

}  // namespace

/// The plug-in's thread and what it shares with the window's. The mutex guards all of the first group; the
/// second belongs to the plug-in's thread alone.
class MenuService::Worker : public std::enable_shared_from_this<MenuService::Worker> {
 public:
  Worker(std::string bundle, Patience patience) : bundle_(std::move(bundle)), patience_(patience) {}

  /// A system that has no thread or no descriptors to give now may have them for the next menu, which tries
  /// again.
  void start() {
    std::unique_lock guard(mutex_);
    ended_ = !guarded([this] { std::thread([self = shared_from_this()] { self->run(); }).detach(); });
    changed_.wait(guard, [this] { return loop_ != nullptr || ended_; });
  }

  // A thread that is stuck is not waited for.
  void end() {
    std::unique_lock guard(mutex_);
    ending_ = true;
    listener_ = nullptr;
    if (loop_ != nullptr) {
      loop_->perform([] { RunLoop::current().stop(); });
    }
    changed_.wait_for(guard, kLongestFarewell, [this] { return ended_; });
  }

  void setListener(std::function<void()> listener) {
    const std::lock_guard guard(mutex_);
    listener_ = std::move(listener);
  }

  std::shared_ptr<const OfferedMenu> ask(const std::vector<std::string>& paths) {
    if (hasEnded()) {
      start();
    }
    std::unique_lock guard(mutex_);
    if (loop_ == nullptr) {
      return nullptr;
    }
    if (std::shared_ptr<const OfferedMenu> known = handOut(paths)) {
      return known;
    }
    const std::uint64_t number = request(paths);
    // Whoever found the plug-in stuck before has waited enough.
    const bool isStuck = current_ && Clock::now() - currentSince_ > patience_;
    const auto isThere = [&] { return offered_ && offered_->number >= number; };
    if (!isStuck && changed_.wait_for(guard, patience_, isThere)) {
      return handOut(paths);
    }
    awaited_ = number;
    return nullptr;
  }

  std::shared_ptr<const OfferedMenu> remembered(const std::vector<std::string>& paths) {
    const std::lock_guard guard(mutex_);
    return handOut(paths);
  }

  void forget() {
    const std::lock_guard guard(mutex_);
    if (!isUnseen()) {
      offered_.reset();
    }
    unseenUntil_.reset();
  }

  void choose(const OfferedMenu& menu, std::uint32_t command) {
    const std::lock_guard guard(mutex_);
    if (loop_ != nullptr) {
      loop_->perform([this, menu, command] { carryOut(menu, command); });
    }
  }

  std::string notRespondingTitle() {
    const std::lock_guard guard(mutex_);
    return notRespondingTitle_;
  }

 private:
  // --- Either thread, under the mutex ---

  /// A holder of the remembered menu, if it is that of these paths.
  std::shared_ptr<const OfferedMenu> handOut(const std::vector<std::string>& paths) {
    if (!offered_ || offered_->paths != paths) {
      return nullptr;
    }
    const std::shared_ptr<const OfferedMenu> menu = offered_;
    ++holders_;
    return {menu.get(), [self = shared_from_this(), menu](const OfferedMenu*) { self->letGo(); }};
  }

  /// Whether the remembered menu came late, and the next opening may still show it.
  bool isUnseen() const { return offered_ && unseenUntil_ && Clock::now() < *unseenUntil_; }

  /// The number of the examination that will answer: the one under way or the next.
  std::uint64_t request(const std::vector<std::string>& paths) {
    if (current_ && !next_ && current_->paths == paths) {
      return current_->number;
    }
    if (!next_ || next_->paths != paths) {
      next_ = std::make_shared<OfferedMenu>();
      next_->number = ++lastNumber_;
      next_->paths = paths;
    }
    if (!scheduled_) {
      scheduled_ = true;
      loop_->perform([this] { examineNext(); });
    }
    return next_->number;
  }

  // --- The window's thread ---

  void letGo() {
    const std::lock_guard guard(mutex_);
    if (--holders_ == 0 && !ending_ && loop_ != nullptr) {
      loop_->perform([this] { endCycleIn(kLinger); });
    }
  }

  // --- The plug-in's thread ---

  void run() {
    guarded([this] { serve(); });
    {
      const std::lock_guard guard(mutex_);
      loop_ = nullptr;
      ended_ = true;
    }
    changed_.notify_all();
  }

  void serve() {
    Host& host = Host::shared();
    host.declareMainThread();
    host.setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    host.setContextualMenuAttributes(gestaltContextualMenuHasAttributeAndModifierKeys);
    RunLoop& loop = RunLoop::current();
    {
      const std::lock_guard guard(mutex_);
      loop_ = &loop;
    }
    changed_.notify_all();
    while (!isEnding()) {
      loop.run(kLongTime);
    }
    plugIn_.reset();
  }

  bool hasEnded() {
    const std::lock_guard guard(mutex_);
    return ended_;
  }

  bool isEnding() {
    const std::lock_guard guard(mutex_);
    return ending_;
  }

  void examineNext() {
    std::shared_ptr<OfferedMenu> menu;
    {
      const std::lock_guard guard(mutex_);
      scheduled_ = false;
      menu = current_ = std::exchange(next_, nullptr);
      currentSince_ = Clock::now();
    }
    if (!menu || isEnding()) {
      return;
    }
    std::vector<MenuItem> items = examine(*menu);
    std::function<void()> listener;
    bool isLate = false;
    {
      const std::lock_guard guard(mutex_);
      menu->items = std::move(items);
      current_.reset();
      if (!next_) {  // else it is out of date
        offered_ = menu;
        isLate = awaited_ == menu->number;
        unseenUntil_.reset();
      }
      if (isLate) {
        unseenUntil_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(kUnseenLife);
        listener = listener_;
      }
    }
    changed_.notify_all();
    if (isLate) {
      endCycleIn(kUnseenLife);
    }
    if (listener) {
      listener();
    }
  }

  /// Ends the cycle that is open and begins that of this menu.
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

  /// The host lives, whatever a menu costs. False when something was thrown.
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

  /// Unless somebody holds its menu then, or is still to see it. The main run loop may outlive this.
  void endCycleIn(RunLoop::Seconds delay) {
    RunLoop::current().scheduleTimer(delay, false, [weak = weak_from_this(), number = open_](Timer&) {
      if (const std::shared_ptr<Worker> self = weak.lock(); self && !self->isWanted()) {
        self->endCycle(number);
      }
    });
  }

  bool isWanted() {
    const std::lock_guard guard(mutex_);
    return holders_ > 0 || isUnseen();
  }

  void endCycle(std::uint64_t number) {
    {
      const std::lock_guard guard(mutex_);
      if (offered_ && offered_->number == number) {
        offered_.reset();
      }
    }
    if (plugIn_ && open_ == number) {
      plugIn_->cleanup();
      open_ = 0;
    }
  }

  /// False when there is no plug-in, which is said once and tried again with the next menu.
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
    const std::lock_guard guard(mutex_);
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

  std::mutex mutex_;
  std::condition_variable changed_;
  RunLoop* loop_ = nullptr;
  bool ending_ = false, ended_ = false;
  bool scheduled_ = false;
  std::shared_ptr<OfferedMenu> next_;     // to be examined
  std::shared_ptr<OfferedMenu> current_;  // being examined
  Clock::time_point currentSince_;
  std::shared_ptr<const OfferedMenu> offered_;    // remembered
  std::optional<Clock::time_point> unseenUntil_;  // when it came late
  std::uint64_t lastNumber_ = 0, awaited_ = 0;
  std::size_t holders_ = 0;  // of what was handed out
  std::function<void()> listener_;
  std::string notRespondingTitle_ = kNotResponding;

  std::unique_ptr<MenuHost> plugIn_;
  std::uint64_t open_ = 0, chosen_ = 0;  // the menu whose cycle is open, and the last that was chosen from
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
