#include "daemon/backup/BackupWorker.h"

#include <algorithm>
#include <limits>

#include "daemon/ByteSum.h"
#include "daemon/Clock.h"
#include "daemon/scan/disk/FileFacts.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

// The limit of the first batch, because the speed of the repository is not known yet.
constexpr std::size_t kFirstMostFiles = 150'000;
constexpr std::uint64_t kFirstMostBytes = std::uint64_t{20} << 30;
// When the clock jumps by more than this number of seconds, the computer has slept.
constexpr std::int64_t kShortestSleep = 5;
constexpr char kBytesLost[] = "bytesLost";
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
      choice_(pending_),
      watcher_([this](const std::vector<Change>& changes) { filesChanged(changes); }),
      scanner_(store, rules, pending_, &watcher_),
      run_(store, rules, engine, files, scanner_, pending_),
      lostBytes_(store.value(Store::Table::settings, kBytesLost) == "1"),
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
  for (Lane* lane : lanes_) {
    lane->thread = std::thread([this, lane] { runLane(*lane); });
  }
}

void BackupWorker::stop() {
  {
    const ScopedLock guard(mutex_);
    stopping_ = true;
    for (Lane* lane : lanes_) {
      lane->job.cancelled = true;
    }
  }
  changed_.notifyAll();
  watcher_.stop();
  if (scanning_.joinable()) {
    scanning_.join();
  }
  for (Lane* lane : lanes_) {
    if (lane->thread.joinable()) {
      lane->thread.join();
    }
  }
}

void BackupWorker::reconsider(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  const bool isFile = status && isStorable(*status);
  if (isFile) {
    if (rules_.decide(path, false).selected) {
      watcher_.addPlace(path);
    }
    scanner_.consider(path);
  } else {
    dropExcluded(path);
  }
  forgetFailuresBelow(path);
  {
    const ScopedLock guard(mutex_);
    if (isFile) {
      urgent_ = true;
      noticed_ = noticed_.value_or(steady_clock::now());
      ++wakes_;
    } else {
      placesMayChange_ = true;
      willScan(path, true);
    }
    for (Lane* lane : lanes_) {
      if (lane->isStoring) {
        lane->reconsidered.push_back(path);
        endIfExcluded(*lane);
      }
    }
  }
  changed_.notifyAll();
}

// Excluded files do not count as failed.
void BackupWorker::forgetFailuresBelow(const std::string& path) {
  const auto isExcluded = [&](const std::string& file) {
    return isAtOrBelow(file, path) && !rules_.decide(file, false).selected;
  };
  if (store_.failureCount() == 0 || (!store_.failure(path) && !store_.hasFailureBelow(path))) {
    return;
  }
  for (const FailureRecord& failure : store_.failures(store_.failureCount())) {
    if (isExcluded(failure.path)) {
      store_.clearFailure(failure.path);
    }
  }
}

void BackupWorker::addIntention(int change) {
  const ScopedLock guard(mutex_);
  intentions_ += change;
}

// Waiting files are checked one by one only if some of them may still be selected.
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
    const ScopedLock guard(mutex_);
    placesMayChange_ = true;
    for (const std::string& path : pending_.preferred()) {
      willScan(path, false);
    }
    for (const std::string& place : places) {
      willScan(place, false);
    }
  }
  changed_.notifyAll();
}

// A place that is asked for many times is scanned once.
void BackupWorker::willScan(const std::string& place, bool urgent) {
  urgent_ = urgent_ || urgent;
  ++wakes_;
  looksWaiting_.addTree(place);
}

// A tag file makes a folder a cache, so a change of the tag counts as a change of the folder.
void BackupWorker::filesChanged(const std::vector<Change>& changes) {
  {
    const ScopedLock guard(mutex_);
    for (const Change& change : changes) {
      if (change.extent == Change::Extent::entry && lastPathComponent(change.path) == kCacheTagName) {
        looksWaiting_.addTree(std::string(parentPath(change.path)));
      }
      looksWaiting_.add(change);
    }
    ++wakes_;
  }
  changed_.notifyAll();
}

void BackupWorker::prioritize(const std::string& path) {
  store_.addPriority(path);
  pending_.preferNext(path);
  scanner_.forgetDelays();
  reconsider(path);
  if (!pending_.contains(path)) {  // it is stored already, so there is nothing to prefer
    pending_.endPreference(path);
    store_.removePriority(path);
  }
}

void BackupWorker::endUnwantedPreferences(const std::string& path) {
  for (const std::string& preferred : pending_.preferred()) {
    if (isAtOrBelow(preferred, path) && !rules_.decide(preferred, false).selected) {
      pending_.endPreference(preferred);
      store_.removePriority(preferred);
    }
  }
}

void BackupWorker::repositoryChanged() {
  {
    const ScopedLock guard(mutex_);
    ready_ = false;
    hour_ = {};
    ++wakes_;
  }
  watch_.tryNow();
  changed_.notifyAll();
}

// Files that could not be stored because of the damage are tried again.
void BackupWorker::bytesLost() {
  store_.setValue(Store::Table::settings, kBytesLost, "1");
  scanner_.forgetDelays();
  const ScopedLock guard(mutex_);
  hour_ = {};
  lostBytes_ = true;
}

void BackupWorker::noteStoredAnew() {
  store_.setValue(Store::Table::settings, kBytesLost, "0");
  keeper_.storedAnew();
}

void BackupWorker::wake() {
  {
    const ScopedLock guard(mutex_);
    ++wakes_;
  }
  changed_.notifyAll();
}

BackupWorker::Stillness BackupWorker::holdStill(const EngineJob* own) {
  Stillness stillness{std::unique_lock(ordinary_.running, std::defer_lock),
                      std::unique_lock(preferred_.running, std::defer_lock),
                      std::unique_lock(large_.running, std::defer_lock)};
  const auto take = [own](std::unique_lock<Mutex>& lock, Lane& lane) {
    while (&lane.job != own && !lock.try_lock()) {  // a call that begins just now must be cancelled too
      lane.job.cancelled = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  };
  take(stillness.ordinary, ordinary_);
  take(stillness.preferred, preferred_);
  take(stillness.large, large_);
  return stillness;
}

void BackupWorker::setModes(const Modes& modes) {
  {
    const ScopedLock guard(mutex_);
    modes_ = modes;
    ++wakes_;
    for (Lane* lane : lanes_) {
      lane->job.lowPriority = modes.lowerPriority;
    }
    cancelWhatMayNotRun();
  }
  changed_.notifyAll();
}

void BackupWorker::cancelWhatMayNotRun() {
  for (Lane* lane : lanes_) {
    if (lane->isStoring && !mayWork(lane->isForced)) {
      lane->job.cancelled = true;
    }
  }
}

// A call that ran while the computer slept may have lost its lock on the repository.
void BackupWorker::endAfterSuspend() {
  const std::int64_t asleep = secondsAsleep();
  if (asleep - suspended_ > kShortestSleep) {
    for (Lane* lane : lanes_) {
      lane->job.cancelled = lane->job.cancelled || lane->isStoring;
    }
    for (const std::string& place : rules_.places()) {
      willScan(place, false);
    }
  }
  suspended_ = asleep;
}

BackupWorker::Progress BackupWorker::progress() const {
  // The files that a scan finds are on the list before the scan counts as done, so the list is asked last.
  const ScopedLock guard(mutex_);
  Progress progress;
  progress.placesToScan =
      looksWaiting_.size() + (placeScanned_.empty() ? 0 : 1) + static_cast<std::size_t>(intentions_);
  const PendingFiles::Totals totals = pending_.totals();
  progress.hasPreferred = pending_.hasPreferred();
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  for (const Lane* lane : {&ordinary_, &large_, &preferred_}) {
    progress.isStoring = progress.isStoring || lane->isStoring;
    files += lane->filesDone;
    bytes = saturatedSum(bytes, lane->bytesDone);
    if (!lane->current.empty() && !lane->job.cancelled) {
      progress.currentFile = lane->current;
    }
  }
  // A file counts as pending until its batch has ended, so the last one goes with the batch.
  progress.pendingFiles = totals.files - std::min(files, totals.files - (totals.files > 0 ? 1 : 0));
  progress.pendingBytes = totals.bytes - std::min(bytes, totals.bytes);
  progress.isReady = ready_;
  return progress;
}

bool BackupWorker::isPendingBelow(const std::string& folder) const {
  if (pending_.containsBelow(folder)) {
    return true;
  }
  const ScopedLock guard(mutex_);
  return looksWaiting_.hasBelow(folder) || (!placeScanned_.empty() && isAtOrBelow(placeScanned_, folder));
}

bool BackupWorker::isToBeScanned(const std::string& path) const {
  const ScopedLock guard(mutex_);
  return (!placeScanned_.empty() && isAtOrBelow(path, placeScanned_)) || looksWaiting_.covers(path);
}

bool BackupWorker::isPrioritized(const std::string& path) const {
  return pending_.isPreferred(path) && (pending_.contains(path) || isToBeScanned(path));
}

std::optional<double> BackupWorker::partStored(const std::string& path) const {
  const ScopedLock guard(mutex_);
  for (const Lane* lane : lanes_) {
    if (lane->batch == nullptr || lane->current != path) {
      continue;
    }
    const std::vector<BatchFile>& files = lane->batch->files;
    const auto file = std::find_if(files.begin(), files.end(),
                                   [&](const BatchFile& candidate) { return candidate.path == path; });
    if (file != files.end()) {
      const auto done = static_cast<double>(lane->bytesDone - lane->doneBeforeCurrent);
      return std::min(1.0, done / std::max(1.0, static_cast<double>(file->state.size)));
    }
  }
  return std::nullopt;
}

}  // namespace keldane
