#include "daemon/backup/Scanner.h"

#include <dirent.h>
#include <fcntl.h>

#include <chrono>
#include <memory>
#include <set>

#include "daemon/Clock.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr std::chrono::hours kRetryUnreadable(1);

}  // namespace

bool Scanner::scan(const std::string& place, const std::atomic<bool>& cancelled) {
  const std::uint32_t scan = pending_.beginScan();
  const std::optional<struct stat> status = statusOf(place);
  bool news = false;
  if (!status) {
    store_.setRemoved(place, true, timeOfDay());
  } else if (!S_ISDIR(status->st_mode)) {
    news = consider(place);
  } else {
    std::vector<std::string> folders = {place};
    while (!folders.empty() && !cancelled) {
      const std::string folder = std::move(folders.back());
      folders.pop_back();
      scanFolder(folder, folders, news);
    }
  }
  if (!cancelled) {
    pending_.endScan(place, scan);
  }
  return news;
}

// A folder that cannot be opened tells nothing of what lies in it, so nothing is noted as removed then.
void Scanner::scanFolder(const std::string& folder, std::vector<std::string>& below, bool& news) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
  if (!open) {
    return;
  }
  std::vector<std::string> foldersWithRecords;
  std::map<std::string, BackupRecord> records = store_.recordsIn(folder, &foldersWithRecords);
  std::set<std::string> folders;
  while (const dirent* entry = readdir(open.get())) {
    const std::string name = entry->d_name;
    struct stat status {};
    if (name == "." || name == ".." ||
        fstatat(dirfd(open.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    const std::string path = appendPathComponent(folder, name);
    if (S_ISDIR(status.st_mode)) {
      folders.insert(path);
      if (!rules_.decide(path, true).barred) {
        below.push_back(path);
      }
    } else if (isStorable(status)) {
      const auto record = records.find(path);
      news = consider(path, &status, record == records.end() ? nullptr : &record->second) || news;
      if (record != records.end()) {
        records.erase(record);
      }
    }
  }
  for (const auto& [path, record] : records) {
    if (!record.removed && !statusOf(path)) {
      store_.setRemoved(path, true, timeOfDay());
    }
  }
  for (const std::string& name : foldersWithRecords) {
    const std::string path = appendPathComponent(folder, name);
    if (!folders.contains(path) && !statusOf(path)) {
      store_.setRemoved(path, true, timeOfDay());
    }
  }
}

bool Scanner::consider(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  const std::optional<BackupRecord> record = store_.record(path);
  if (!status && record && !record->removed) {
    store_.setRemoved(path, true, timeOfDay());
  }
  return consider(path, status ? &*status : nullptr, record ? &*record : nullptr);
}

bool Scanner::consider(const std::string& path, const struct stat* status, const BackupRecord* record) {
  if (status != nullptr && record != nullptr && record->removed) {
    store_.setRemoved(path, false, 0);
  }
  // What the rules say is asked last but one: mostly a file is as it was, and then they need not be asked.
  const bool isWanted = status != nullptr && isStorable(*status) &&
                        !(record != nullptr && isUnchanged(*status, *record)) &&
                        rules_.decide(path, false).selected && !isPutOff(path, fileStateOf(*status));
  if (!isWanted) {
    pending_.remove(path);
    return false;
  }
  return pending_.add(path, static_cast<std::uint64_t>(status->st_size));
}

void Scanner::putOff(const std::string& path, const FileState& state) {
  pending_.remove(path);
  const std::lock_guard guard(delaysMutex_);
  delays_[path] = {state, std::chrono::steady_clock::now() + kRetryUnreadable};
}

void Scanner::forgetDelays() {
  const std::lock_guard guard(delaysMutex_);
  delays_.clear();
}

bool Scanner::isPutOff(const std::string& path, const FileState& state) {
  const std::lock_guard guard(delaysMutex_);
  const auto delay = delays_.find(path);
  if (delay == delays_.end()) {
    return false;
  }
  if (delay->second.state == state && std::chrono::steady_clock::now() < delay->second.until) {
    return true;
  }
  delays_.erase(delay);
  return false;
}

}  // namespace keldane
