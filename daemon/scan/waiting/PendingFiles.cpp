#include "daemon/scan/waiting/PendingFiles.h"

#include <algorithm>
#include <limits>

#include "platform/files/Path.h"

namespace keldane {

namespace {

// The most paths that are copied while the mutex is held.
constexpr std::size_t kFilesAtOnce = 1'000;

std::string firstBelow(const std::string& folder) { return folder == "/" ? folder : folder + '/'; }

}  // namespace

std::uint32_t PendingFiles::beginScan() {
  const ScopedLock guard(mutex_);
  return ++scan_;
}

void PendingFiles::count(const WaitingNames& names, int sign) {
  if (sign > 0) {
    files_ += names.files();
    bytes_.add(names.bytes());
  } else {
    files_ -= names.files();
    bytes_.take(names.bytes());
  }
}

PendingFiles::Folders::iterator PendingFiles::dropIfEmpty(Folders::iterator folder) {
  return folder->second.files() == 0 ? folders_.erase(folder) : std::next(folder);
}

bool PendingFiles::setFolder(const std::string& folder, std::vector<WaitingName>& files, std::uint32_t scan) {
  const auto byName = [](const WaitingName& a, const WaitingName& b) { return a.name < b.name; };
  if (!std::is_sorted(files.begin(), files.end(), byName)) {
    std::sort(files.begin(), files.end(), byName);
  }
  const ScopedLock guard(mutex_);
  auto entry = folders_.find(folder);
  if (entry == folders_.end()) {
    if (files.empty()) {
      return false;
    }
    entry = folders_.try_emplace(folder).first;
  }
  count(entry->second, -1);
  const bool isNews = entry->second.replace(files, scan);
  count(entry->second, 1);
  dropIfEmpty(entry);
  return isNews;
}

void PendingFiles::endScan(const std::string& place, std::uint32_t scan) {
  const ScopedLock guard(mutex_);
  const auto drop = [&](Folders::iterator folder) KELDANE_REQUIRES(mutex_) {
    if (folder->second.scan() >= scan) {
      return std::next(folder);
    }
    count(folder->second, -1);
    folder->second.removeOlder(scan);
    count(folder->second, 1);
    return dropIfEmpty(folder);
  };
  if (const auto own = folders_.find(place); own != folders_.end()) {
    drop(own);
  }
  const std::string below = firstBelow(place);
  for (auto folder = folders_.lower_bound(below);
       folder != folders_.end() && folder->first.starts_with(below);) {
    folder = drop(folder);
  }
}

bool PendingFiles::add(const std::string& path, std::uint64_t bytes, uid_t owner) {
  const ScopedLock guard(mutex_);
  WaitingNames& names = folders_[std::string(parentPath(path))];
  count(names, -1);
  const bool isNew = names.add({entryName(path), bytes, owner}, scan_);
  count(names, 1);
  return isNew;
}

void PendingFiles::remove(const std::string& path) {
  removeIfOlder(path, std::numeric_limits<std::uint32_t>::max());
}

bool PendingFiles::removeIfOlder(const std::string& path, std::uint32_t scan) {
  const ScopedLock guard(mutex_);
  const auto folder = folders_.find(parentPath(path));
  if (folder == folders_.end()) {
    return true;
  }
  count(folder->second, -1);
  const bool isRemoved = folder->second.removeIfOlder(entryName(path), scan, scan_);
  count(folder->second, 1);
  dropIfEmpty(folder);
  return isRemoved;
}

void PendingFiles::removeUnless(const std::string& path,
                                const std::function<bool(const std::string& path)>& keep) {
  if (contains(path) && !keep(path)) {
    remove(path);
  }
  const std::string below = firstBelow(path);
  std::string next = path;
  for (std::vector<std::string> names;; names.clear()) {
    std::string folder;
    {
      const ScopedLock guard(mutex_);
      auto entry = folders_.lower_bound(next);
      if (entry != folders_.end() && entry->first != path && entry->first < below) {
        entry = folders_.lower_bound(below);  // between "/a" and "/a/" lies "/a!"
      }
      if (entry == folders_.end() || !isAtOrBelow(entry->first, path)) {
        return;
      }
      folder = entry->first;
      entry->second.visit([&](const WaitingName& file) {
        names.emplace_back(file.name);
        return true;
      });
    }
    for (const std::string& name : names) {
      const std::string file = appendPathComponent(folder, name);
      if (!keep(file)) {
        remove(file);
      }
    }
    next = folder + '\0';
  }
}

std::optional<WaitingName> PendingFiles::find(std::string_view path) const {
  const auto folder = folders_.find(parentPath(path));
  return folder == folders_.end() ? std::nullopt : folder->second.find(entryName(path));
}

bool PendingFiles::contains(const std::string& path) const {
  const ScopedLock guard(mutex_);
  return find(path).has_value();
}

bool PendingFiles::containsBelow(const std::string& folder) const {
  const std::string below = firstBelow(folder);
  const ScopedLock guard(mutex_);
  const auto first = folders_.lower_bound(below);
  return folders_.contains(folder) || (first != folders_.end() && first->first.starts_with(below));
}

PendingFiles::Totals PendingFiles::totals() const {
  const ScopedLock guard(mutex_);
  return {files_, bytes_.value()};
}

void PendingFiles::prefer(const std::string& path, std::int64_t order) {
  const ScopedLock guard(mutex_);
  lastOrder_ = std::max(lastOrder_, order);
  preferences_.try_emplace(path, Preference{order, lastWish_});
}

void PendingFiles::preferNext(const std::string& path) {
  const ScopedLock guard(mutex_);
  preferences_.try_emplace(path, Preference{++lastOrder_, 0}).first->second.wish = ++lastWish_;
}

void PendingFiles::endPreference(const std::string& path) {
  const ScopedLock guard(mutex_);
  preferences_.erase(path);
}

std::uint64_t PendingFiles::lastWish() const {
  const ScopedLock guard(mutex_);
  return lastWish_;
}

bool PendingFiles::endPreference(const std::string& path, std::uint64_t lastWish) {
  const ScopedLock guard(mutex_);
  const auto preference = preferences_.find(path);
  if (preference == preferences_.end() || preference->second.wish > lastWish) {
    return false;
  }
  preferences_.erase(preference);
  return true;
}

bool PendingFiles::isPreferred(const std::string& path) const {
  const ScopedLock guard(mutex_);
  return preferences_.contains(path);
}

std::vector<std::string> PendingFiles::preferred() const {
  const ScopedLock guard(mutex_);
  std::vector<std::string> paths;
  for (const auto& [path, preference] : preferences_) {
    paths.push_back(path);
  }
  return paths;
}

bool PendingFiles::hasPreferred() const {
  const ScopedLock guard(mutex_);
  return std::any_of(preferences_.begin(), preferences_.end(),
                     [this](const auto& preference)
                         KELDANE_REQUIRES(mutex_) { return find(preference.first).has_value(); });
}

std::vector<PendingFiles::File> PendingFiles::waitingPreferred() const {
  std::map<std::int64_t, File> inOrder;
  const ScopedLock guard(mutex_);
  for (const auto& [path, preference] : preferences_) {
    if (const std::optional<WaitingName> file = find(path)) {
      inOrder[preference.order] = {path, file->bytes, file->owner};
    }
  }
  std::vector<File> files;
  files.reserve(inOrder.size());
  for (auto& [order, file] : inOrder) {
    files.push_back(std::move(file));
  }
  return files;
}

void PendingFiles::visit(const std::function<bool(const File& file)>& visitor) const {
  std::vector<File> files;
  std::string next;
  for (bool isEnd = false; !isEnd;) {
    files.clear();
    {
      const ScopedLock guard(mutex_);
      auto folder = folders_.lower_bound(next);
      for (; folder != folders_.end() && files.size() < kFilesAtOnce; ++folder) {
        folder->second.visit([&](const WaitingName& file) {
          files.push_back({appendPathComponent(folder->first, file.name), file.bytes, file.owner});
          return true;
        });
        next = folder->first + '\0';
      }
      isEnd = folder == folders_.end();
    }
    if (!std::all_of(files.begin(), files.end(), visitor)) {
      return;
    }
  }
}

}  // namespace keldane
