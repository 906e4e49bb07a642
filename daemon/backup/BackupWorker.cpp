#include "daemon/backup/BackupWorker.h"

#include <algorithm>

#include "daemon/Clock.h"
#include "daemon/backup/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

// The first batch, before it is known how quick the repository is.
constexpr std::size_t kFirstMostFiles = 150'000;
constexpr std::uint64_t kFirstMostBytes = std::uint64_t{20} << 30;
// A clock that jumped by more than this while the computer ran: it slept.
constexpr std::int64_t kShortestSleep = 5;

}  // namespace

BackupWorker::BackupWorker(Store& store, const RuleBook& rules, BackupEngine& engine,
                           const RepositoryFiles& files, RepositoryWatch& watch, RepositoryKeeper& keeper,
                           const Timing& timing)
    : store_(store),
      rules_(rules),
      engine_(engine),
      watch_(watch),
      keeper_(keeper),
      timing_(timing),
      scanner_(store, rules, pending_),
      run_(store, rules, engine, files, scanner_, pending_),
      mostFiles_(kFirstMostFiles),
      mostBytes_(kFirstMostBytes),
      suspended_(secondsAsleep()) {
  for (const auto& [path, order] : store.priorities()) {
    pending_.prefer(path, order);
  }
}

BackupWorker::~BackupWorker() { stop(); }

void BackupWorker::start() {
  reconsiderAll();
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
  for (std::thread* thread : {&scanning_, &ordinary_.thread, &preferred_.thread}) {
    if (thread->joinable()) {
      thread->join();
    }
  }
}

void BackupWorker::reconsider(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  if (status && isStorable(*status)) {
    scanner_.consider(path);
    const std::lock_guard guard(mutex_);
    urgent_ = true;
    noticed_ = noticed_.value_or(steady_clock::now());
    ++wakes_;
  } else {
    const std::lock_guard guard(mutex_);
    willScan(path, true);
  }
  changed_.notify_all();
}

void BackupWorker::reconsiderAll() {
  const std::vector<std::string> places = rules_.places();
  {
    const std::lock_guard guard(mutex_);
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
  if (toBeScanned_.insert(place).second) {
    toScan_.push_back(place);
  }
}

std::optional<std::string> BackupWorker::nextPlace() {
  const std::lock_guard guard(mutex_);
  if (scanned_.empty()) {  // else it could not be done to its end
    if (toScan_.empty()) {
      return std::nullopt;
    }
    scanned_ = std::move(toScan_.front());  // so that it still counts as pending
    toScan_.pop_front();
    toBeScanned_.erase(scanned_);
  }
  return scanned_;
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
  const std::string below = folder == "/" ? folder : folder + '/';
  const std::lock_guard guard(mutex_);
  const auto place = toBeScanned_.lower_bound(below);
  return toBeScanned_.contains(folder) || (place != toBeScanned_.end() && isAtOrBelow(*place, folder)) ||
         (!scanned_.empty() && isAtOrBelow(scanned_, folder));
}

bool BackupWorker::waitForWork(std::chrono::milliseconds time) {
  std::unique_lock guard(mutex_);
  const std::uint64_t seen = wakes_;
  changed_.wait_for(guard, time, [&] { return stopping_ || wakes_ != seen; });
  return !stopping_;
}

void BackupWorker::runScanner() {
  auto nextScan = steady_clock::now() + timing_.scanInterval;
  while (!stopping_) {
    try {
      if (const std::optional<std::string> place = nextPlace()) {
        const bool news = scanner_.scan(*place, stopping_);
        const std::lock_guard guard(mutex_);
        scanned_.clear();
        ++wakes_;
        if (news || urgent_) {
          noticed_ = noticed_.value_or(steady_clock::now());
        }
        changed_.notify_all();
        continue;
      }
      if (steady_clock::now() > nextScan) {
        nextScan = steady_clock::now() + timing_.scanInterval;
        reconsiderAll();
        continue;
      }
    } catch (const std::exception& error) {
      systemLog("The scanner could not go on with its work: %s", error.what());
    }
    waitForWork(std::min<std::chrono::milliseconds>(timing_.scanInterval, std::chrono::seconds(1)));
    const std::lock_guard guard(mutex_);
    endAfterSuspend();
  }
}

}  // namespace keldane
