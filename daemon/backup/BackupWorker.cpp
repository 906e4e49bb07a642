#include "daemon/backup/BackupWorker.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "daemon/Clock.h"
#include "daemon/backup/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

// What changed without anybody telling is found after this time at the latest.
constexpr auto kRescanInterval = std::chrono::seconds(60);

// Between two files while the user wants the machine for other things.
constexpr auto kLowPriorityPause = std::chrono::milliseconds(50);

}  // namespace

BackupWorker::BackupWorker(Store& store, const RuleBook& rules, std::unique_ptr<BackupEngine> engine)
    : store_(store), rules_(rules), engine_(std::move(engine)), priorities_(store.priorities()) {
  for (const auto& [path, order] : priorities_) {
    lastPriority_ = std::max(lastPriority_, order);
  }
}

BackupWorker::~BackupWorker() { stop(); }

void BackupWorker::start() {
  reconsiderAll();
  thread_ = std::thread([this] { run(); });
}

void BackupWorker::stop() {
  {
    const std::lock_guard guard(mutex_);
    job_.cancelled = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) {
    thread_.join();
  }
}

void BackupWorker::reconsider(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  if (status && S_ISREG(status->st_mode)) {
    considerFile(path);
  } else {
    const std::lock_guard guard(mutex_);
    willScan(path);
  }
  changed_.notify_all();
}

void BackupWorker::reconsiderAll() {
  const std::vector<std::string> places = rules_.places();
  {
    const std::lock_guard guard(mutex_);
    for (const auto& [path, order] : priorities_) {
      willScan(path);
    }
    for (const std::string& place : places) {
      willScan(place);
    }
  }
  changed_.notify_all();
}

// With the mutex held. Whoever asks a thousand times has it looked at once.
void BackupWorker::willScan(const std::string& place) {
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
  {
    const std::lock_guard guard(mutex_);
    priorities_.try_emplace(path, ++lastPriority_);
  }
  reconsider(path);
  const std::lock_guard guard(mutex_);
  if (!pending_.contains(path)) {  // backed up already: there is nothing to prefer
    priorities_.erase(path);
    store_.removePriority(path);
  }
}

void BackupWorker::setModes(const Modes& modes) {
  {
    const std::lock_guard guard(mutex_);
    modes_ = modes;
  }
  changed_.notify_all();
}

BackupWorker::Progress BackupWorker::progress() const {
  const std::lock_guard guard(mutex_);
  const auto current = pending_.find(currentFile_);
  const std::uint64_t done =
      current == pending_.end() ? 0 : std::min<std::uint64_t>(current->second, job_.bytesDone);
  return {pending_.size(), pendingBytes_ - done, currentFile_, toScan_.size()};
}

bool BackupWorker::isPending(const std::string& path) const {
  const std::lock_guard guard(mutex_);
  return pending_.contains(path);
}

bool BackupWorker::isPendingBelow(const std::string& folder) const {
  const std::lock_guard guard(mutex_);
  const std::string below = folder == "/" ? folder : folder + '/';
  const auto place = toBeScanned_.lower_bound(below);
  const auto first = pending_.lower_bound(below);
  return toBeScanned_.contains(folder) || (place != toBeScanned_.end() && isAtOrBelow(*place, folder)) ||
         (!scanned_.empty() && isAtOrBelow(scanned_, folder)) ||
         (first != pending_.end() && isAtOrBelow(first->first, folder));
}

bool BackupWorker::isPrioritized(const std::string& path) const {
  const std::lock_guard guard(mutex_);
  return priorities_.contains(path);
}

void BackupWorker::run() {
  auto nextRescan = std::chrono::steady_clock::now() + kRescanInterval;
  while (!job_.cancelled) {
    try {
      if (const std::optional<std::string> place = nextPlace()) {
        rescan(*place);
        const std::lock_guard guard(mutex_);
        scanned_.clear();
      } else if (const std::optional<std::string> file = nextFile()) {
        backUp(*file);
      } else if (std::chrono::steady_clock::now() > nextRescan) {
        nextRescan = std::chrono::steady_clock::now() + kRescanInterval;
        reconsiderAll();
      } else {
        waitForWork();
      }
    } catch (const std::exception& error) {
      systemLog("The backup worker could not go on with its work: %s", error.what());
      waitForWork();
    }
  }
}

void BackupWorker::waitForWork() {
  std::unique_lock guard(mutex_);
  changed_.wait_for(guard, std::chrono::seconds(1));
}

void BackupWorker::rescan(const std::string& place) {
  forgetBelow(place);
  const std::optional<struct stat> status = statusOf(place);
  if (status && S_ISDIR(status->st_mode)) {
    scanFolder(place);
  } else if (status && S_ISREG(status->st_mode)) {
    considerFile(place);
  }
}

// Folder by folder, links not followed. What cannot be read is passed over.
void BackupWorker::scanFolder(const std::string& folder) {
  std::vector<std::string> folders = {folder};
  while (!folders.empty() && !job_.cancelled) {
    const std::string current = std::move(folders.back());
    folders.pop_back();
    std::error_code error;
    for (fs::directory_iterator at(current, fs::directory_options::skip_permission_denied, error), end;
         !error && at != end && !job_.cancelled; at.increment(error)) {
      const std::string path = at->path().string();
      std::error_code ignored;
      const fs::file_type type = at->symlink_status(ignored).type();
      if (type == fs::file_type::directory && !rules_.decide(path, true).barred) {
        folders.push_back(path);
      } else if (type == fs::file_type::regular) {
        considerFile(path);
      }
    }
  }
}

void BackupWorker::forgetBelow(const std::string& path) {
  const std::lock_guard guard(mutex_);
  for (auto entry = pending_.lower_bound(path); entry != pending_.end() && entry->first.starts_with(path);) {
    if (isAtOrBelow(entry->first, path)) {
      pendingBytes_ -= entry->second;
      entry = pending_.erase(entry);
    } else {
      ++entry;
    }
  }
}

void BackupWorker::considerFile(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  const std::optional<BackupRecord> record = store_.record(path);
  const bool wanted = status && S_ISREG(status->st_mode) && rules_.decide(path, false).selected &&
                      !(record && isUnchanged(*status, *record));
  const std::lock_guard guard(mutex_);
  const auto known = pending_.find(path);
  if (known != pending_.end()) {
    pendingBytes_ -= known->second;
    pending_.erase(known);
  }
  if (wanted) {
    pending_[path] = static_cast<std::uint64_t>(status->st_size);
    pendingBytes_ += static_cast<std::uint64_t>(status->st_size);
  }
}

bool BackupWorker::mayWork(bool hasPriority) const {
  return modes_.enabled && modes_.pausedUntil <= secondsSinceBoot() && (modes_.automatic || hasPriority);
}

std::optional<std::string> BackupWorker::nextFile() {
  const std::lock_guard guard(mutex_);
  std::optional<std::string> first;
  std::int64_t order = 0;
  for (const auto& [path, sequence] : priorities_) {
    if (pending_.contains(path) && (!first || sequence < order)) {
      first = path;
      order = sequence;
    }
  }
  if (first || pending_.empty()) {
    return first && mayWork(true) ? first : std::nullopt;
  }
  return mayWork(false) ? std::optional(pending_.begin()->first) : std::nullopt;
}

void BackupWorker::backUp(const std::string& path) {
  bool slowly = false;
  {
    const std::lock_guard guard(mutex_);
    currentFile_ = path;
    job_.bytesDone = 0;
    slowly = modes_.lowerPriority;
  }
  // On Linux a thread has a nice value of its own; raising it needs no right, lowering it again may, and then
  // the thread stays nice.
  setpriority(PRIO_PROCESS, 0, slowly ? 19 : 0);
  std::optional<BackupRecord> record;
  if (rules_.decide(path, false).selected) {
    record = engine_->backUp(path, job_);
  }
  if (record) {
    store_.setRecord(path, *record);
    store_.removePriority(path);
  }
  std::unique_lock guard(mutex_);
  currentFile_.clear();
  if (record) {
    priorities_.erase(path);
  }
  const auto done = pending_.find(path);
  if (done != pending_.end()) {
    pendingBytes_ -= done->second;
    pending_.erase(done);
  }
  if (slowly) {
    changed_.wait_for(guard, kLowPriorityPause, [this] { return job_.cancelled.load(); });
  }
}

}  // namespace keldane
