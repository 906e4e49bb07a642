#include "daemon/backup/BackupWorker.h"

#include <malloc.h>

#include <algorithm>
#include <limits>

#include "daemon/Clock.h"
#include "daemon/backup/FileFacts.h"
#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

// The first batch, before it is known how quick the repository is.
constexpr std::size_t kFirstMostFiles = 150'000;
constexpr std::uint64_t kFirstMostBytes = std::uint64_t{20} << 30;
// A clock that jumped by more than this while the computer ran: it slept.
constexpr std::int64_t kShortestSleep = 5;
// Folders of a tree between which other changes are looked at, so that these are found within a second.
constexpr std::size_t kFoldersAtOnce = 64;
constexpr std::uint32_t kEveryScan = std::numeric_limits<std::uint32_t>::max();

}  // namespace

BackupWorker::BackupWorker(Store& store, RuleBook& rules, BackupEngine& engine, const RepositoryFiles& files,
                           RepositoryWatch& watch, RepositoryKeeper& keeper, const Timing& timing)
    : store_(store),
      rules_(rules),
      engine_(engine),
      watch_(watch),
      keeper_(keeper),
      timing_(timing),
      watcher_([this](const std::vector<Change>& changes) { filesChanged(changes); }),
      scanner_(store, rules, pending_, &watcher_),
      run_(store, rules, engine, files, scanner_, pending_),
      mostFiles_(kFirstMostFiles),
      mostBytes_(kFirstMostBytes),
      suspended_(secondsAsleep()),
      quiet_(scanner_, rules, watcher_, timing.looks) {
  for (const auto& [path, order] : store.priorities()) {
    pending_.prefer(path, order);
  }
}

BackupWorker::~BackupWorker() { stop(); }

void BackupWorker::start() {
  reconsiderAll();
  watcher_.start();
  scanning_ = std::thread([this] { runScanner(); });
  ordinary_.thread = std::thread([this] { runLane(ordinary_, false); });
  preferred_.thread = std::thread([this] { runLane(preferred_, true); });
}

void BackupWorker::stop() {
  {
    const std::lock_guard guard(mutex_);
    stopping_ = true;
    ordinary_.job.cancelled = true;
    preferred_.job.cancelled = true;
  }
  changed_.notify_all();
  watcher_.stop();
  for (std::thread* thread : {&scanning_, &ordinary_.thread, &preferred_.thread}) {
    if (thread->joinable()) {
      thread->join();
    }
  }
}

void BackupWorker::reconsider(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  if (status && isStorable(*status)) {
    if (rules_.decide(path, false).selected) {
      watcher_.addPlace(path);
    }
    scanner_.consider(path);
    const std::lock_guard guard(mutex_);
    urgent_ = true;
    noticed_ = noticed_.value_or(steady_clock::now());
    ++wakes_;
  } else {
    dropExcluded(path);
    const std::lock_guard guard(mutex_);
    placesMayChange_ = true;
    willScan(path, true);
  }
  changed_.notify_all();
}

// What waits is asked for one by one only where something of it may still be selected.
void BackupWorker::dropExcluded(const std::string& path) {
  const Decision decision = rules_.decide(path, true);
  if (!decision.selected && !decision.mayHold) {
    pending_.endScan(path, kEveryScan);
    pending_.remove(path);
  } else if (!decision.selected) {
    pending_.removeUnless(path,
                          [this](const std::string& file) { return rules_.decide(file, false).selected; });
  }
}

void BackupWorker::reconsiderAll() {
  const std::vector<std::string> places = rules_.places();
  {
    const std::lock_guard guard(mutex_);
    placesMayChange_ = true;
    for (const std::string& path : pending_.preferred()) {
      willScan(path, false);
    }
    for (const std::string& place : places) {
      willScan(place, false);
    }
  }
  changed_.notify_all();
}

// With the mutex held. Whoever asks a thousand times has it looked at once.
void BackupWorker::willScan(const std::string& place, bool urgent) {
  urgent_ = urgent_ || urgent;
  ++wakes_;
  toScan_.addTree(place);
}

// Whether a folder is a cache is seen by its tag, so the tag stands for the folder.
void BackupWorker::filesChanged(const std::vector<Change>& changes) {
  {
    const std::lock_guard guard(mutex_);
    for (const Change& change : changes) {
      if (change.extent == Change::Extent::entry && lastPathComponent(change.path) == kCacheTagName) {
        toScan_.addTree(std::string(parentPath(change.path)));
      }
      toScan_.add(change);
    }
    ++wakes_;
  }
  changed_.notify_all();
}

void BackupWorker::prioritize(const std::string& path) {
  store_.addPriority(path);
  pending_.preferNext(path);
  scanner_.forgetDelays();
  reconsider(path);
  if (!pending_.contains(path)) {  // stored already: there is nothing to prefer
    pending_.endPreference(path);
    store_.removePriority(path);
  }
}

void BackupWorker::repositoryChanged() {
  {
    const std::lock_guard guard(mutex_);
    ready_ = false;
    hour_ = {};
    ++wakes_;
  }
  watch_.tryNow();
  changed_.notify_all();
}

// What could not be stored because of the damage is tried again.
void BackupWorker::bytesLost() {
  scanner_.forgetDelays();
  const std::lock_guard guard(mutex_);
  hour_ = {};
  lostBytes_ = true;
}

void BackupWorker::wake() {
  {
    const std::lock_guard guard(mutex_);
    ++wakes_;
  }
  changed_.notify_all();
}

BackupWorker::Stillness BackupWorker::holdStill(const EngineJob* own) {
  Stillness stillness{std::unique_lock(ordinary_.running, std::defer_lock),
                      std::unique_lock(preferred_.running, std::defer_lock)};
  const auto take = [own](std::unique_lock<std::mutex>& lock, Lane& lane) {
    while (&lane.job != own && !lock.try_lock()) {  // a call that begins just now has yet to be told
      lane.job.cancelled = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  };
  take(stillness.ordinary, ordinary_);
  take(stillness.preferred, preferred_);
  return stillness;
}

void BackupWorker::setModes(const Modes& modes) {
  {
    const std::lock_guard guard(mutex_);
    modes_ = modes;
    ++wakes_;
    for (Lane* lane : {&ordinary_, &preferred_}) {
      lane->job.lowPriority = modes.lowerPriority;
    }
    cancelWhatMayNotRun();
  }
  changed_.notify_all();
}

// With the mutex held.
void BackupWorker::cancelWhatMayNotRun() {
  for (Lane* lane : {&ordinary_, &preferred_}) {
    if (lane->isStoring && !mayWork(lane->isForced)) {
      lane->job.cancelled = true;
    }
  }
}

// With the mutex held. What ran while the computer slept may have lost its lock on the repository.
void BackupWorker::endAfterSuspend() {
  const std::int64_t asleep = secondsAsleep();
  if (asleep - suspended_ > kShortestSleep) {
    for (Lane* lane : {&ordinary_, &preferred_}) {
      lane->job.cancelled = lane->job.cancelled || lane->isStoring;
    }
    for (const std::string& place : rules_.places()) {
      willScan(place, false);
    }
  }
  suspended_ = asleep;
}

BackupWorker::Progress BackupWorker::progress() const {
  const PendingFiles::Totals totals = pending_.totals();
  const std::lock_guard guard(mutex_);
  const std::uint64_t files = ordinary_.filesDone + preferred_.filesDone;
  const std::uint64_t bytes = ordinary_.bytesDone + preferred_.bytesDone;
  Progress progress;
  progress.isStoring = ordinary_.isStoring || preferred_.isStoring;
  // A file counts as pending until its batch has ended, so the last one goes with the batch.
  progress.pendingFiles = totals.files - std::min(files, totals.files - (totals.files > 0 ? 1 : 0));
  progress.pendingBytes = totals.bytes - std::min(bytes, totals.bytes);
  progress.currentFile = preferred_.current.empty() ? ordinary_.current : preferred_.current;
  progress.placesToScan = toScan_.size() + (scanned_.empty() ? 0 : 1);
  progress.isReady = ready_;
  return progress;
}

bool BackupWorker::isPendingBelow(const std::string& folder) const {
  if (pending_.containsBelow(folder)) {
    return true;
  }
  const std::lock_guard guard(mutex_);
  return toScan_.hasBelow(folder) || (!scanned_.empty() && isAtOrBelow(scanned_, folder));
}

bool BackupWorker::waitForWork(std::chrono::milliseconds time) {
  std::unique_lock guard(mutex_);
  const std::uint64_t seen = wakes_;
  changed_.wait_for(guard, time, [&] { return stopping_ || wakes_ != seen; });
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
    const std::lock_guard guard(mutex_);
    endAfterSuspend();
  }
}

/// False when nothing is to be looked at.
bool BackupWorker::lookAtNext() {
  bool mayChange = false;
  {
    const std::lock_guard guard(mutex_);
    std::swap(mayChange, placesMayChange_);
  }
  if (mayChange) {
    watcher_.setPlaces([this] { return rules_.places(); });
  }
  return lookAtChange() || lookAtTree();
}

/// One file, or one folder with its direct entries.
bool BackupWorker::lookAtChange() {
  std::string path;
  {
    const std::lock_guard guard(mutex_);
    const Change* change = toScan_.takeSmall();
    if (change == nullptr) {
      return false;
    }
    path = change->path;
  }
  std::vector<std::string> below;
  const std::optional<struct stat> status = statusOf(path);
  const bool news = status && S_ISDIR(status->st_mode) ? scanner_.look(path, below) : scanner_.consider(path);
  const std::lock_guard guard(mutex_);
  toScan_.smallIsDone();
  for (const std::string& place : below) {
    toScan_.addTree(place);
  }
  noteLook(news);
  return true;
}

/// A few folders of the place at hand.
bool BackupWorker::lookAtTree() {
  {
    const std::lock_guard guard(mutex_);
    if (scanned_.empty()) {
      scanned_ = toScan_.takeTree().value_or("");
    }
    if (scanned_.empty()) {
      return false;
    }
  }
  if (!walk_ || walk_->place != scanned_) {
    walk_ = scanner_.begin(scanned_);
  }
  scanner_.step(*walk_, kFoldersAtOnce);
  if (walk_->isDone) {
    const bool news = walk_->news;
    walk_.reset();
    const std::lock_guard guard(mutex_);
    scanned_.clear();
    noteLook(news);
  }
  return true;
}

// With the mutex held.
void BackupWorker::noteLook(bool news) {
  if (news || urgent_) {
    noticed_ = noticed_.value_or(steady_clock::now());
  }
  if (toScan_.empty() && scanned_.empty()) {
    ++wakes_;
    changed_.notify_all();
  }
}

// A large batch leaves much memory behind that the system may use otherwise.
void BackupWorker::giveMemoryBack() {
  const bool isStoring = progress().isStoring;
  if (wasStoring_ && !isStoring) {
    malloc_trim(0);
  }
  wasStoring_ = isStoring;
}

/// What nothing has asked for. Answers how long it may rest.
std::chrono::milliseconds BackupWorker::lookQuietly() {
  giveMemoryBack();
  const QuietLook::Step step = quiet_.step();
  const std::vector<std::string> due = scanner_.dueAgain();
  const std::lock_guard guard(mutex_);
  for (const std::string& place : step.below) {
    toScan_.addTree(place);
  }
  for (const std::string& file : due) {
    toScan_.add({Change::Extent::entry, file});
  }
  if (step.news) {
    noteLook(true);
  }
  return due.empty() && step.below.empty() ? step.pause : std::chrono::milliseconds(0);
}

}  // namespace keldane
