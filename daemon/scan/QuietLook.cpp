#include "daemon/scan/QuietLook.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace keldane {

namespace {

// The folders of one step, and the pause before the next one.
constexpr std::size_t kFolders = 32;
constexpr std::chrono::milliseconds kPause(200), kIdle(60'000);

/// Gives the thread the lowest priority for the disk while it exists.
class IdleDisk {
 public:
  IdleDisk() : before_(syscall(SYS_ioprio_get, kThread, 0)) { set(kIdleClass); }
  ~IdleDisk() { set(before_ < 0 ? 0 : before_); }
  IdleDisk(const IdleDisk&) = delete;
  IdleDisk& operator=(const IdleDisk&) = delete;

 private:
  static constexpr int kThread = 1;
  static constexpr long kIdleClass = 3L << 13;
  static void set(long priority) { syscall(SYS_ioprio_set, kThread, 0, priority); }
  const long before_;
};

}  // namespace

QuietLook::QuietLook(Scanner& scanner, const RuleBook& rules, const Watcher& watcher, const Timing& timing)
    : scanner_(scanner),
      rules_(rules),
      watcher_(watcher),
      timing_(timing),
      nextEverything_(Clock::now() + timing.everything),
      round_(timing.firstRound),
      nextRound_(Clock::now() + timing.firstRound) {}

QuietLook::Step QuietLook::step() {
  Step step;
  const bool isBusy = lookAtUnwatched(step) || lookAtEverything(step);
  step.pause = isBusy ? kPause : kIdle;
  if (!isBusy) {
    const auto next = std::min(nextEverything_, nextRound_) - Clock::now();
    step.pause = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(next), kPause, kIdle);
  }
  return step;
}

bool QuietLook::lookAtEverything(Step& step) {
  if (!walk_ && places_.empty()) {
    if (Clock::now() < nextEverything_) {
      return false;
    }
    nextEverything_ = Clock::now() + timing_.everything;
    places_ = rules_.places();
  }
  const IdleDisk idle;
  if (!walk_ && !places_.empty()) {
    walk_ = scanner_.begin(places_.back());
    places_.pop_back();
  }
  if (walk_) {
    scanner_.step(*walk_, kFolders, Scanner::Pace::quiet);
    step.news = walk_->news;
    if (walk_->isDone) {
      walk_.reset();
    }
  }
  return true;
}

// Folders that can be watched again are no longer on the list.
bool QuietLook::lookAtUnwatched(Step& step) {
  if (!lastUnwatched_) {
    if (Clock::now() < nextRound_) {
      return false;
    }
    lastUnwatched_ = "";
  }
  const IdleDisk idle;
  const std::vector<std::string> folders = watcher_.unwatchedAfter(*lastUnwatched_, kFolders);
  for (const std::string& folder : folders) {
    step.news = scanner_.look(folder, step.below) || step.news;
    lastUnwatched_ = folder;
  }
  if (folders.size() == kFolders) {
    return true;
  }
  const bool isNone = folders.empty() && lastUnwatched_->empty();
  round_ = isNone ? timing_.firstRound : std::min(2 * round_, timing_.longestRound);
  nextRound_ = Clock::now() + round_;
  lastUnwatched_.reset();
  return !isNone;
}

}  // namespace keldane
