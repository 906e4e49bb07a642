// Decides what the worker stores next, and when.
#include <algorithm>

#include "daemon/ByteSum.h"
#include "daemon/Clock.h"
#include "daemon/backup/BackupWorker.h"
#include "daemon/scan/disk/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

constexpr double kBatchSeconds = 600;  // the wanted duration of a batch
// With more files a batch would take more memory than a daemon on a desktop should have: each takes about 300
// bytes.
constexpr std::size_t kFewestFiles = 1'000, kMostFiles = 250'000;
constexpr std::uint64_t kFewestBytes = std::uint64_t{64} << 20, kMostBytes = std::uint64_t{1} << 40;
constexpr std::size_t kShortBatch = 100;  // files
constexpr std::uint64_t kShortBatchBytes = std::uint64_t{64} << 20;
// The files of an hour's earlier batches are stored again with each batch, so that the hour's last snapshot
// has them all. This is their greatest number.
constexpr std::size_t kMostAgain = 2'000;

std::int64_t hourNow() {
  return std::chrono::duration_cast<std::chrono::hours>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

bool isShort(const Batch& batch) {
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < batch.files.size() && i <= kShortBatch; ++i) {
    bytes = saturatedSum(bytes, batch.files[i].state.size);
  }
  return batch.files.size() <= kShortBatch && bytes <= kShortBatchBytes;
}

}  // namespace

void BackupWorker::runLane(Lane& lane) {
  while (!stopping_) {
    bool worked = false;
    try {
      worked = step(lane);
    } catch (const std::exception& error) {
      systemLog("The backup could not go on with its work: %s", error.what());
    }
    if (!worked) {
      waitForWork(std::chrono::seconds(1));
    }
  }
}

/// Runs one batch or one piece of upkeep. Returns false when there was nothing to do.
bool BackupWorker::step(Lane& lane) {
  const ScopedLock running(lane.running);
  {
    const ScopedLock guard(mutex_);
    lane.job.cancelled = stopping_.load();
  }
  if (!watch_.mayTry() || !prepare(lane) || keeper_.isRecovering()) {
    return false;
  }
  if (const std::optional<Batch> batch = nextBatch(lane)) {
    return runBatch(lane, *batch);
  }
  if (lane.work == Work::ordinary && pending_.totals().files == 0) {
    bool rests = false;
    {
      const ScopedLock guard(mutex_);
      rests = !mayWork(false) || !looksWaiting_.empty() || !placeScanned_.empty();
      isCaring_ = !rests;
    }
    if (const auto answer = rests ? std::nullopt : keeper_.lookAfter(lane.job)) {
      watch_.report(*answer);
    }
    const ScopedLock guard(mutex_);
    isCaring_ = false;
  }
  return false;
}

bool BackupWorker::prepare(Lane& lane) {
  const ScopedLock preparing(preparing_);
  {
    const ScopedLock guard(mutex_);
    if (ready_) {
      return true;
    }
  }
  const EngineAnswer answer = keeper_.makeReady(lane.job);
  watch_.report(answer);
  if (!answer) {
    return false;
  }
  const std::vector<SnapshotRecord> snapshots = store_.snapshots();
  const ScopedLock guard(mutex_);
  ready_ = true;
  lastFull_ = {};
  changedSinceFull_ = false;
  newest_.clear();
  for (const SnapshotRecord& snapshot : snapshots) {
    newest_ = snapshot.prefix.empty() ? snapshot.id : newest_;
    changedSinceFull_ = !snapshot.full;
    if (snapshot.full) {
      lastFull_ = snapshot;
    }
  }
  return true;
}

bool BackupWorker::mayWork(bool preferred) const {
  return modes_.enabled && modes_.pausedUntil <= secondsSinceBoot() &&
         (preferred || (modes_.automatic && modes_.restsUntil <= secondsSinceBoot()));
}

bool BackupWorker::isBatchDue() const {
  return mayWork(false) && looksWaiting_.empty() && placeScanned_.empty() &&
         (urgent_ || !noticed_ || steady_clock::now() >= *noticed_ + timing_.batchDelay);
}

bool BackupWorker::isFullDue() const {
  const double age = timeOfDay() - lastFull_.time;
  return mayWork(false) && looksWaiting_.empty() && placeScanned_.empty() && changedSinceFull_ &&
         // The age is negative when the clock was set back. An additional full snapshot does no harm.
         (lastFull_.id.empty() || age < 0 || age >= static_cast<double>(timing_.fullInterval.count()));
}

std::optional<Batch> BackupWorker::nextBatch(const Lane& lane) {
  if (lane.work == Work::ordinary) {
    return nextOrdinary();
  }
  if (lane.work == Work::large) {
    return nextLarge();
  }
  BatchBounds bounds;
  {
    const ScopedLock guard(mutex_);
    if (!mayWork(true)) {
      return std::nullopt;
    }
    bounds = {mostFiles_, mostBytes_};
  }
  Batch batch = batchOf(choice_.preferred(bounds).files, lane);
  return batch.files.empty() ? std::nullopt : std::optional(std::move(batch));
}

std::optional<Batch> BackupWorker::nextOrdinary() {
  BatchBounds bounds;
  bool isFullNow = false;
  std::string lastFull;
  const std::uint64_t waiting = pending_.totals().files;
  {
    const ScopedLock guard(mutex_);
    isFullNow = waiting == 0 && isFullDue();
    if (!isFullNow && (waiting == 0 || !isBatchDue())) {
      return std::nullopt;
    }
    bounds = {mostFiles_, mostBytes_};
    // Before the first full snapshot there may be another one that has some of the files.
    lastFull = lostBytes_ ? std::string() : lastFull_.id.empty() ? newest_ : lastFull_.id;
    noticed_.reset();
    urgent_ = false;
  }
  Batch batch;
  if (!isFullNow) {
    BatchChoice::Choice choice = choice_.ordinary(bounds);
    batch = batchOf(choice.files, ordinary_);
    const ScopedLock guard(mutex_);
    if (!choice.large.empty()) {
      ++wakes_;
      changed_.notifyAll();
    }
    foundLarge_ = std::move(choice.large);
  }
  // When most of what is selected waits, and all of it fits, a full snapshot costs little more.
  const bool isMost = waiting == batch.files.size() && waiting > store_.totals().files;
  batch.full = isFullNow || isMost;
  if (batch.full) {
    batch.parent = lastFull;
  } else {
    addAgain(batch);
  }
  return batch.full || !batch.files.empty() ? std::optional(std::move(batch)) : std::nullopt;
}

// Files that are gone or were excluded meanwhile are taken off the list.
Batch BackupWorker::batchOf(const std::vector<PendingFiles::File>& files, const Lane& lane) {
  Batch batch;
  batch.lastWish = pending_.lastWish();
  const std::set<std::string> others = aboutToBeStoredBesides(lane);
  for (const PendingFiles::File& file : files) {
    if (others.contains(file.path)) {
      continue;
    }
    const std::optional<struct stat> status = statusOf(file.path);
    if (!status || !isStorable(*status) || !rules_.decide(file.path, false).selected) {
      scanner_.consider(file.path);
    } else if (pending_.contains(file.path)) {  // otherwise another lane has just stored it
      batch.files.push_back({file.path, fileStateOf(*status), S_ISLNK(status->st_mode) != 0, 0, 0});
    }
  }
  return batch;
}

// The files that other lanes read now, and those of batches so short that they end before another one could.
std::set<std::string> BackupWorker::aboutToBeStoredBesides(const Lane& lane) const {
  std::set<std::string> paths;
  const ScopedLock guard(mutex_);
  for (const Lane* other : lanes_) {
    if (other == &lane || other->batch == nullptr) {
      continue;
    }
    paths.insert(other->current);
    if (isShort(*other->batch)) {
      for (const BatchFile& file : other->batch->files) {
        paths.insert(file.path);
      }
    }
  }
  return paths;
}

void BackupWorker::addAgain(Batch& batch) {
  const ScopedLock guard(mutex_);
  if (hour_.number != hourNow() || hour_.files.size() > kMostAgain || batch.files.size() > kMostAgain) {
    hour_ = {};
    hour_.number = hourNow();
    return;
  }
  for (const BatchFile& file : batch.files) {
    hour_.files.erase(file.path);
  }
  std::erase_if(hour_.files,
                [this](const auto& entry) { return !rules_.decide(entry.first, false).selected; });
  for (const auto& [path, file] : hour_.files) {
    batch.again.push_back(file);
  }
  batch.parent = hour_.parent;
}

/// Runs a batch and returns whether it was stored.
bool BackupWorker::runBatch(Lane& lane, const Batch& batch) {
  if (const EngineAnswer room = keeper_.mayGrow(); !room) {
    watch_.report(room);
    return false;
  }
  {
    const ScopedLock guard(mutex_);
    lane.isStoring = true;
    lane.batch = &batch;
    lane.isForced = lane.work == Work::preferred || (lane.work == Work::large && turn_.file.isPreferred);
    cancelWhatMayNotRun();
  }
  const auto began = steady_clock::now();
  const BatchEnd end =
      run_.run(batch, lane.job, [&](std::uint64_t files, std::uint64_t bytes, const std::string& current) {
        noteProgress(lane, files, bytes, current);
      });
  {
    const ScopedLock guard(mutex_);
    lane.isStoring = false;
    lane.batch = nullptr;
    lane.filesDone = 0;
    lane.bytesDone = 0;
    lane.doneBeforeCurrent = 0;
    lane.current.clear();
    lane.reconsidered.clear();
    if (!end.answer) {
      urgent_ = true;  // no further delay; the repository decides when it is tried again
    }
  }
  watch_.report(end.answer);
  if (end.answer.health == Health::locked) {
    engine_.unlock(lane.job);
  }
  if (!end.answer || end.snapshot.id.empty()) {
    return false;
  }
  if (learnFrom(lane, batch, end, steady_clock::now() - began)) {
    noteStoredAnew();
  }
  if (lane.work == Work::ordinary) {
    noteRest(batch);
  }
  keeper_.grew(end.bytesAdded);
  keeper_.noteGood();
  changed_.notifyAll();
  return true;
}

// Learns from the result of a batch. Returns whether lost bytes have been stored again.
bool BackupWorker::learnFrom(const Lane& lane, const Batch& batch, const BatchEnd& end,
                             steady_clock::duration took) {
  std::uint64_t bytes = 0;
  for (const StoredFile& file : end.stored) {
    bytes = saturatedSum(bytes, file.state.size);
  }
  const ScopedLock guard(mutex_);
  ++wakes_;
  newest_ = end.snapshot.id;
  if (lane.work == Work::large) {
    doublings_.erase(batch.files.front().path);
  }
  const bool isAnew = lostBytes_ && batch.full && batch.parent.empty();
  lostBytes_ = lostBytes_ && !isAnew;
  if (batch.full) {
    lastFull_ = end.snapshot;
    changedSinceFull_ = false;
  } else {
    changedSinceFull_ = true;
    hour_.number = hourNow();
    hour_.parent = end.snapshot.id;
    if (end.stored.size() > kMostAgain) {
      hour_ = {};  // they are too many to be stored again, and would take much memory
      hour_.number = hourNow();
    } else {
      for (const StoredFile& file : end.stored) {
        hour_.files[file.path] = {file.path, file.state, false, end.snapshot.number, end.snapshot.time};
      }
    }
  }
  const double seconds = std::chrono::duration<double>(took).count();
  if (lane.work == Work::ordinary && !batch.full && seconds > kBatchSeconds / 10) {
    const double factor = kBatchSeconds / seconds;
    mostFiles_ = std::clamp(static_cast<std::size_t>(static_cast<double>(end.stored.size()) * factor),
                            kFewestFiles, kMostFiles);
    mostBytes_ =
        std::clamp(static_cast<std::uint64_t>(static_cast<double>(bytes) * factor), kFewestBytes, kMostBytes);
  }
  return isAnew;
}

// Files that changed while they were stored wait like any other change. Files that were left for the next
// batch do not wait.
void BackupWorker::noteRest(const Batch& batch) {
  const PendingFiles::Totals rest = pending_.totals();
  const ScopedLock guard(mutex_);
  if (rest.files > 0 && rest.files <= batch.files.size()) {
    noticed_ = noticed_.value_or(steady_clock::now());
  }
}

}  // namespace keldane
