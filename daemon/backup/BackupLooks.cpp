// The thread that looks at the disk.
#include <malloc.h>

#include <algorithm>

#include "daemon/backup/BackupWorker.h"
#include "daemon/scan/disk/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

// The number of folders of a tree that are scanned at a time. Other changes are looked at in between, so that
// they are found within a second.
constexpr std::size_t kFoldersAtOnce = 64;

}  // namespace

bool BackupWorker::waitForWork(std::chrono::milliseconds time) {
  const ScopedLock guard(mutex_);
  const std::uint64_t seen = wakes_;
  changed_.waitFor(mutex_, time, [&]() KELDANE_REQUIRES(mutex_) { return stopping_ || wakes_ != seen; });
  return !stopping_;
}

void BackupWorker::runScanner() {
  while (!stopping_) {
    auto pause = std::chrono::milliseconds(1000);
    try {
      if (lookAtNext()) {
        continue;
      }
      pause = std::min(pause, lookQuietly());
    } catch (const std::exception& error) {
      systemLog("The scanner could not go on with its work: %s", error.what());
    }
    waitForWork(pause);
    const ScopedLock guard(mutex_);
    endAfterSuspend();
  }
}

/// Looks at the next change or tree. Returns false when there is none.
bool BackupWorker::lookAtNext() {
  bool mayChange = false;
  {
    const ScopedLock guard(mutex_);
    std::swap(mayChange, placesMayChange_);
  }
  if (mayChange) {
    watcher_.setPlaces([this] { return rules_.places(); });
  }
  return lookAtChange() || lookAtTree();
}

/// Looks at one file, or at one folder with its direct entries.
bool BackupWorker::lookAtChange() {
  std::string path;
  {
    const ScopedLock guard(mutex_);
    const Change* change = looksWaiting_.takeSmall();
    if (change == nullptr) {
      return false;
    }
    path = change->path;
  }
  std::vector<std::string> below;
  const std::optional<struct stat> status = statusOf(path);
  const bool news = status && S_ISDIR(status->st_mode) ? scanner_.look(path, below) : scanner_.consider(path);
  const ScopedLock guard(mutex_);
  looksWaiting_.smallIsDone();
  for (const std::string& place : below) {
    looksWaiting_.addTree(place);
  }
  noteLook(news);
  return true;
}

/// Looks at a few folders of the current place.
bool BackupWorker::lookAtTree() {
  std::string place;
  {
    const ScopedLock guard(mutex_);
    if (placeScanned_.empty()) {
      placeScanned_ = looksWaiting_.takeTree().value_or("");
    }
    if (placeScanned_.empty()) {
      return false;
    }
    place = placeScanned_;
  }
  if (!walk_ || walk_->place != place) {
    walk_ = scanner_.begin(place);
  }
  scanner_.step(*walk_, kFoldersAtOnce);
  if (walk_->isDone) {
    const bool news = walk_->news;
    walk_.reset();
    const ScopedLock guard(mutex_);
    placeScanned_.clear();
    noteLook(news);
  }
  return true;
}

void BackupWorker::noteLook(bool news) {
  if (news || urgent_) {
    noticed_ = noticed_.value_or(steady_clock::now());
  }
  if (looksWaiting_.empty() && placeScanned_.empty()) {
    ++wakes_;
    changed_.notifyAll();
  }
}

// A large batch leaves much free memory behind, which is given back to the system.
void BackupWorker::giveMemoryBack() {
  const bool isStoring = progress().isStoring;
  if (wasStoring_ && !isStoring) {
    malloc_trim(0);
  }
  wasStoring_ = isStoring;
}

/// Makes a look that nothing has asked for. Returns the time for which the thread may rest.
std::chrono::milliseconds BackupWorker::lookQuietly() {
  giveMemoryBack();
  const QuietLook::Step step = quiet_.step();
  const std::vector<std::string> due = scanner_.dueAgain();
  const ScopedLock guard(mutex_);
  for (const std::string& place : step.below) {
    looksWaiting_.addTree(place);
  }
  for (const std::string& file : due) {
    looksWaiting_.add({Change::Extent::entry, file});
  }
  if (step.news) {
    noteLook(true);
  }
  return due.empty() && step.below.empty() ? step.pause : std::chrono::milliseconds(0);
}
}  // namespace keldane
