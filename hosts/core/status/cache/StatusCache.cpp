#include "hosts/core/status/cache/StatusCache.h"

#include <algorithm>
#include <utility>

#include "platform/files/Path.h"

namespace keldane {

namespace {

// A folder rests for this many times the time that its questions took. So they take 1 % of the time while
// nothing changes.
constexpr int kRestWhileUnchanged = 100;
constexpr int kRestAfterChange = 20;

constexpr std::size_t kSamples = 8;

}  // namespace

const FileStatus* StatusCache::find(const std::string& path) {
  Folder& folder = folderAt(parentPath(path));
  folder.used = ++uses_;
  const std::string name = lastPathComponent(path);
  auto found = folder.files.find(name);
  if (found == folder.files.end()) {
    makeRoom(folder);
    found = folder.files.try_emplace(name).first;
    ++count_;
  }
  Entry& entry = found->second;
  if (!entry.isKnown && !entry.isShown) {
    if (folder.queue.empty()) {
      folder.queuedAt = Clock::now();
    }
    folder.queue.push_back(name);
  }
  const bool isLate =
      entry.isKnown && !entry.isShown && entry.status != FileStatus() && folder.files.size() > kSlowToOpen;
  if (isLate) {
    if (folder.late.empty()) {
      folder.lateSince = Clock::now();
    }
    folder.late.push_back(name);
  }
  entry.isShown = true;
  return entry.isKnown && !isLate ? &entry.status : nullptr;
}

std::vector<std::string> StatusCache::takeLate(Clock::time_point now) {
  std::vector<std::string> paths;
  for (auto& [path, folder] : folders_) {
    if (!folder.late.empty() && folder.lateSince + timing_.batchDelay <= now) {
      for (const std::string& name : std::exchange(folder.late, {})) {
        paths.push_back(appendPathComponent(path, name));
      }
    }
  }
  return paths;
}

void StatusCache::expect(const std::string& path) {
  if (!folders_.contains(path)) {
    Folder& folder = folderAt(path);
    folder.used = ++uses_;
    folder.isExpected = true;
  }
}

StatusCache::Folder& StatusCache::folderAt(std::string_view path) {
  const auto found = folders_.find(path);
  if (found != folders_.end()) {
    return found->second;
  }
  if (folders_.size() >= kMostFolders) {
    dropFolder(std::min_element(folders_.begin(), folders_.end(), [](const auto& one, const auto& other) {
      return one.second.used < other.second.used;
    }));
  }
  return folders_[std::string(path)];
}

// Drops the least recently used of the other folders. When there is no other folder, drops any file of this
// one.
void StatusCache::makeRoom(const Folder& wanted) {
  while (count_ >= kMostFiles) {
    auto oldest = folders_.end();
    for (auto each = folders_.begin(); each != folders_.end(); ++each) {
      if (&each->second != &wanted && (oldest == folders_.end() || each->second.used < oldest->second.used)) {
        oldest = each;
      }
    }
    if (oldest != folders_.end()) {
      dropFolder(oldest);
      continue;
    }
    for (auto& [path, folder] : folders_) {
      folder.files.erase(folder.files.begin());
      --count_;
    }
  }
}

void StatusCache::dropFolder(std::map<std::string, Folder, std::less<>>::iterator folder) {
  count_ -= folder->second.files.size();
  folders_.erase(folder);
}

void StatusCache::close(const std::string& folder) {
  if (const auto found = folders_.find(folder); found != folders_.end()) {
    dropFolder(found);
  }
}

StatusTiming::Duration StatusCache::rest(const Folder& folder, bool changed) const {
  const bool isLarge = folder.isTooLarge || folder.files.size() > kLargeFolder;
  const StatusTiming::Duration least = isLarge   ? timing_.largeFolder
                                       : changed ? timing_.afterChange
                                                 : timing_.unchanged;
  return std::max(least, folder.cost * (changed ? kRestAfterChange : kRestWhileUnchanged));
}

StatusCache::Clock::time_point StatusCache::dueTime(const Folder& folder, Clock::time_point now) const {
  if (folder.isExpected) {
    return now;
  }
  if (!folder.queue.empty()) {
    return folder.queuedAt + timing_.batchDelay;
  }
  return folder.wasAsked ? folder.askedAt + rest(folder, folder.stateSeen != state_) : now;
}

std::optional<StatusCache::Clock::time_point> StatusCache::nextDue(Clock::time_point now) const {
  std::optional<Clock::time_point> due;
  for (const auto& [path, folder] : folders_) {
    Clock::time_point time = dueTime(folder, now);
    if (!folder.late.empty()) {
      time = std::min(time, folder.lateSince + timing_.batchDelay);
    }
    due = std::min(due.value_or(Clock::time_point::max()), std::max(now, time));
  }
  return due;
}

std::optional<StatusCache::Question> StatusCache::nextQuestion(Clock::time_point now) {
  const auto due =
      std::min_element(folders_.begin(), folders_.end(), [&](const auto& one, const auto& other) {
        return dueTime(one.second, now) < dueTime(other.second, now);
      });
  if (due == folders_.end() || dueTime(due->second, now) > now) {
    return std::nullopt;
  }
  Folder& folder = due->second;
  const bool isForAll = !folder.wasAsked || now >= folder.askedAt + rest(folder, folder.stateSeen != state_);
  const bool mayBeListed =
      !folder.isTooLarge && (isForAll || now >= folder.askedAt + rest(folder, /*changed=*/true));
  if (isForAll) {
    queueShown(folder);
  }
  Question question{
      due->first, {}, mayBeListed && (folder.isExpected || folder.queue.size() >= kWorthListing)};
  folder.isExpected = false;
  if (isForAll || question.whole) {
    folder.cost = {};
    folder.wasAsked = true;
    folder.askedAt = now;
    folder.stateSeen = state_;
  }
  if (question.whole) {
    folder.queue.clear();
  } else if (folder.queue.size() <= kMostInABatch) {
    question.names.swap(folder.queue);
  } else {
    const auto rest = folder.queue.end() - static_cast<std::ptrdiff_t>(kMostInABatch);
    question.names.assign(rest, folder.queue.end());
    folder.queue.erase(rest, folder.queue.end());
  }
  return question;
}

void StatusCache::queueShown(Folder& folder) {
  folder.queue.clear();
  folder.queuedAt = {};
  for (const auto& [name, entry] : folder.files) {
    if (entry.isShown) {
      folder.queue.push_back(name);
    }
  }
}

void StatusCache::setTooLarge(const std::string& folder) {
  if (const auto found = folders_.find(folder); found != folders_.end()) {
    found->second.isTooLarge = true;
    found->second.wasAsked = false;  // so its files are asked about one by one
  }
}

void StatusCache::putBack(Question& question, std::size_t begin) {
  const auto rest = question.names.begin() + static_cast<std::ptrdiff_t>(begin);
  if (const auto found = folders_.find(question.folder); found != folders_.end()) {
    found->second.queue.insert(found->second.queue.end(), rest, question.names.end());
  }
  question.names.erase(rest, question.names.end());
}

std::vector<std::string> StatusCache::keep(const Question& question, const Answer& answer,
                                           StatusTiming::Duration cost) {
  const auto found = folders_.find(question.folder);
  if (found == folders_.end()) {
    return {};  // the folder is not shown any more
  }
  Folder& folder = found->second;
  folder.cost += cost;
  std::vector<std::string> changed;
  const auto keepOne = [&](const std::string& name, Entry& entry, const FileStatus& status) {
    entry.isKnown = true;
    if (entry.status != status) {
      entry.status = status;
      if (entry.isShown) {
        changed.push_back(appendPathComponent(question.folder, name));
      }
    }
  };
  for (const auto& [name, status] : answer) {
    auto entry = folder.files.find(name);
    if (entry == folder.files.end() && question.whole && count_ < kMostFiles) {
      entry = folder.files.try_emplace(name).first;
      ++count_;
    }
    if (entry != folder.files.end()) {
      keepOne(name, entry->second, status);
    }
  }
  for (const std::string& name : question.names) {
    const auto entry = folder.files.find(name);
    if (entry != folder.files.end() && !answer.contains(name)) {
      keepOne(name, entry->second, {});
    }
  }
  if (question.whole) {
    dropMissing(folder, answer, keepOne);
  }
  return changed;
}

// A file that is missing from a listing is gone, or the daemon does not tell of it. A file that was known is
// dropped. One that was not known yet is remembered as a file of which nothing is known.
template <class Keep>
void StatusCache::dropMissing(Folder& folder, const Answer& answer, const Keep& keepOne) {
  for (auto each = folder.files.begin(); each != folder.files.end();) {
    auto& [name, entry] = *each;
    const bool isGone = !answer.contains(name) && entry.isKnown;
    if (!answer.contains(name)) {
      keepOne(name, entry, {});
    }
    each = isGone ? folder.files.erase(each) : std::next(each);
    count_ -= isGone ? 1U : 0U;
  }
  std::erase_if(folder.queue, [&](const std::string& name) { return answer.contains(name); });
}

void StatusCache::hurry(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    const auto found = folders_.find(parentPath(path));
    const std::string name = lastPathComponent(path);
    if (found != folders_.end() && found->second.files.contains(name)) {
      found->second.queue.push_back(name);
      found->second.queuedAt = {};
    }
  }
}

std::vector<std::string> StatusCache::shown() const {
  std::vector<std::string> shown;
  for (const auto& [path, folder] : folders_) {
    for (const auto& [name, entry] : folder.files) {
      if (entry.isShown && entry.status != FileStatus()) {
        shown.push_back(appendPathComponent(path, name));
      }
    }
  }
  return shown;
}

std::vector<std::string> StatusCache::forgetAll() {
  std::vector<std::string> changed = shown();
  for (auto& [path, folder] : folders_) {
    folder.wasAsked = false;
    for (auto& [name, entry] : folder.files) {
      entry.status = {};
      entry.isKnown = false;
    }
  }
  return changed;
}

void StatusCache::askAnew() {
  for (auto& [path, folder] : folders_) {
    folder.wasAsked = false;
  }
}

std::vector<StatusCache::OpenFolder> StatusCache::openFolders() const {
  std::vector<OpenFolder> open;
  for (const auto& [path, folder] : folders_) {
    OpenFolder each{path, {}};
    for (const auto& [name, entry] : folder.files) {
      if (entry.isShown && each.samples.size() < kSamples) {
        each.samples.push_back(appendPathComponent(path, name));
      }
    }
    open.push_back(std::move(each));
  }
  return open;
}

}  // namespace keldane
