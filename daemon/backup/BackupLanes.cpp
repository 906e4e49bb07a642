// What the worker stores next, and when.
#include <algorithm>

#include "daemon/Clock.h"
#include "daemon/backup/BackupWorker.h"
#include "daemon/backup/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

constexpr double kBatchSeconds = 600;  // what a batch is to last
constexpr std::size_t kFewestFiles = 1'000, kMostFiles = 1'000'000;
constexpr std::uint64_t kFewestBytes = std::uint64_t{64} << 20, kMostBytes = std::uint64_t{1} << 40;
constexpr std::size_t kShortBatch = 100;  // files
// Files that go along with each batch of an hour, so that the hour's last snapshot has them all.
constexpr std::size_t kMostAgain = 2'000;

std::int64_t hourNow() {
  return std::chrono::duration_cast<std::chrono::hours>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

void BackupWorker::runLane(Lane& lane, bool preferredOnly) {
  while (!stopping_) {
    bool worked = false;
    try {
      worked = step(lane, preferredOnly);
    } catch (const std::exception& error) {
      systemLog("The backup could not go on with its work: %s", error.what());
    }
    if (!worked) {
      waitForWork(std::chrono::seconds(1));
    }
  }
}

/// One batch, or one piece of upkeep. False when there was nothing to do.
bool BackupWorker::step(Lane& lane, bool preferredOnly) {
  const std::lock_guard running(lane.running);
  {
    const std::lock_guard guard(mutex_);
    lane.job.cancelled = stopping_.load();
  }
  if (!watch_.mayTry() || !prepare(lane) || keeper_.isRecovering()) {
    return false;
  }
  if (const std::optional<Batch> batch = nextBatch(preferredOnly)) {
    return runBatch(lane, *batch, preferredOnly);
  }
  if (!preferredOnly && pending_.totals().files == 0) {
    bool rests = false;
    {
      const std::lock_guard guard(mutex_);
      rests = !mayWork(false) || !toScan_.empty() || !scanned_.empty();
    }
    if (const auto answer = rests ? std::nullopt : keeper_.lookAfter(lane.job)) {
      watch_.report(*answer);
    }
  }
  return false;
}

bool BackupWorker::prepare(Lane& lane) {
  const std::lock_guard preparing(preparing_);
  {
    const std::lock_guard guard(mutex_);
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
  const std::lock_guard guard(mutex_);
  ready_ = true;
  lastFull_ = {};
  changedSinceFull_ = false;
  for (const SnapshotRecord& snapshot : snapshots) {
    changedSinceFull_ = !snapshot.full;
    if (snapshot.full) {
      lastFull_ = snapshot;
    }
  }
  return true;
}

bool BackupWorker::mayWork(bool preferred) const {
  return modes_.enabled && modes_.pausedUntil <= secondsSinceBoot() && (modes_.automatic || preferred);
}

bool BackupWorker::isBatchDue() const {
  return mayWork(false) && toScan_.empty() && scanned_.empty() &&
         (urgent_ || !noticed_ || steady_clock::now() >= *noticed_ + timing_.batchDelay);
}

bool BackupWorker::isFullDue() const {
  const double age = timeOfDay() - lastFull_.time;
  return mayWork(false) && toScan_.empty() && scanned_.empty() && changedSinceFull_ &&
         // A clock that was set back makes the age negative; a full snapshot too many does no harm.
         (lastFull_.id.empty() || age < 0 || age >= static_cast<double>(timing_.fullInterval.count()));
}

std::optional<Batch> BackupWorker::nextBatch(bool preferredOnly) {
  if (preferredOnly) {
    {
      const std::lock_guard guard(mutex_);
      if (!mayWork(true)) {
        return std::nullopt;
      }
    }
    Batch batch = batchOf(pending_.waitingPreferred(), true);
    return batch.files.empty() ? std::nullopt : std::optional(std::move(batch));
  }
  std::size_t mostFiles = 0;
  std::uint64_t mostBytes = 0;
  bool isFullNow = false;
  std::string lastFull;
  const std::uint64_t waiting = pending_.totals().files;
  {
    const std::lock_guard guard(mutex_);
    isFullNow = waiting == 0 && isFullDue();
    if (!isFullNow && (waiting == 0 || !isBatchDue())) {
      return std::nullopt;
    }
    mostFiles = mostFiles_;
    mostBytes = mostBytes_;
    lastFull = lostBytes_ ? std::string() : lastFull_.id;
    noticed_.reset();
    urgent_ = false;
  }
  Batch batch = isFullNow ? Batch() : batchOf(pending_.first(mostFiles, mostBytes), false);
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

// What is gone waits no longer.
Batch BackupWorker::batchOf(const std::vector<PendingFiles::File>& files, bool preferred) {
  Batch batch;
  for (const PendingFiles::File& file : files) {
    if (preferred ? isAboutToBeStored(file.path) : pending_.isPreferred(file.path)) {
      continue;  // the other lane has it
    }
    const std::optional<struct stat> status = statusOf(file.path);
    if (!status || !isStorable(*status)) {
      scanner_.consider(file.path);
    } else if (pending_.contains(file.path)) {  // else the other lane has just stored it
      batch.files.push_back({file.path, fileStateOf(*status), S_ISLNK(status->st_mode) != 0, 0, 0});
    }
  }
  return batch;
}

// A short batch that has the file is done before another one could be.
bool BackupWorker::isAboutToBeStored(const std::string& path) const {
  const std::lock_guard guard(mutex_);
  return ordinary_.batch != nullptr && ordinary_.batch->files.size() <= kShortBatch &&
         std::any_of(ordinary_.batch->files.begin(), ordinary_.batch->files.end(),
                     [&](const BatchFile& file) { return file.path == path; });
}

void BackupWorker::addAgain(Batch& batch) {
  const std::lock_guard guard(mutex_);
  if (hour_.number != hourNow() || hour_.files.size() > kMostAgain || batch.files.size() > kMostAgain) {
    hour_ = {};
    hour_.number = hourNow();
    return;
  }
  for (const BatchFile& file : batch.files) {
    hour_.files.erase(file.path);
  }
  for (const auto& [path, file] : hour_.files) {
    batch.again.push_back(file);
  }
  batch.parent = hour_.parent;
}

/// True when the batch was stored.
bool BackupWorker::runBatch(Lane& lane, const Batch& batch, bool preferred) {
  if (const EngineAnswer room = keeper_.mayGrow(); !room) {
    watch_.report(room);
    return false;
  }
  {
    const std::lock_guard guard(mutex_);
    lane.isStoring = true;
    lane.batch = &batch;
    lane.isForced = preferred;
    cancelWhatMayNotRun();
  }
  const auto began = steady_clock::now();
  const std::size_t most = batch.files.size();
  const BatchEnd end =
      run_.run(batch, lane.job, [&](std::uint64_t files, std::uint64_t bytes, const std::string& current) {
        const std::lock_guard guard(mutex_);
        lane.filesDone = std::min<std::uint64_t>(files, most);
        lane.bytesDone = bytes;
        lane.current = current;
      });
  {
    const std::lock_guard guard(mutex_);
    lane.isStoring = false;
    lane.batch = nullptr;
    lane.filesDone = 0;
    lane.bytesDone = 0;
    lane.current.clear();
    if (!end.answer) {
      urgent_ = true;  // it waits already; the repository decides when it is tried again
    }
  }
  watch_.report(end.answer);
  if (end.answer.health == Health::locked) {
    engine_.unlock(lane.job);
  }
  if (!end.answer || end.snapshot.id.empty()) {
    return false;
  }
  learnFrom(batch, end, steady_clock::now() - began);
  if (!preferred) {
    noteRest(batch);
  }
  keeper_.grew(end.bytesAdded);
  keeper_.noteGood();
  changed_.notify_all();
  return true;
}

void BackupWorker::learnFrom(const Batch& batch, const BatchEnd& end, steady_clock::duration took) {
  std::uint64_t bytes = 0;
  for (const StoredFile& file : end.stored) {
    bytes += file.state.size;
  }
  const std::lock_guard guard(mutex_);
  ++wakes_;
  if (batch.full) {
    lastFull_ = end.snapshot;
    changedSinceFull_ = false;
    lostBytes_ = lostBytes_ && !batch.parent.empty();
  } else {
    changedSinceFull_ = true;
    hour_.number = hourNow();
    hour_.parent = end.snapshot.id;
    if (end.stored.size() > kMostAgain) {
      hour_ = {};  // too many to go along, and they would take much memory
      hour_.number = hourNow();
    } else {
      for (const StoredFile& file : end.stored) {
        hour_.files[file.path] = {file.path, file.state, false, end.snapshot.number, end.snapshot.time};
      }
    }
  }
  const double seconds = std::chrono::duration<double>(took).count();
  if (!batch.full && seconds > kBatchSeconds / 10) {
    const double factor = kBatchSeconds / seconds;
    mostFiles_ = std::clamp(static_cast<std::size_t>(static_cast<double>(end.stored.size()) * factor),
                            kFewestFiles, kMostFiles);
    mostBytes_ =
        std::clamp(static_cast<std::uint64_t>(static_cast<double>(bytes) * factor), kFewestBytes, kMostBytes);
  }
}

// What changed while it was stored waits as any change does. What was left for the next batch does not.
void BackupWorker::noteRest(const Batch& batch) {
  const PendingFiles::Totals rest = pending_.totals();
  const std::lock_guard guard(mutex_);
  if (rest.files > 0 && rest.files <= batch.files.size()) {
    noticed_ = noticed_.value_or(steady_clock::now());
  }
}

}  // namespace keldane
