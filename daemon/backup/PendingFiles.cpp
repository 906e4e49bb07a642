#include "daemon/backup/PendingFiles.h"

#include <algorithm>

#include "daemon/rules/RuleBook.h"

namespace keldane {

namespace {

constexpr std::size_t kFilesAtOnce = 1'000;  // are copied while the mutex is held

}  // namespace

std::uint32_t PendingFiles::beginScan() {
  const std::lock_guard guard(mutex_);
  return ++scan_;
}

void PendingFiles::endScan(const std::string& place, std::uint32_t scan) {
  const std::lock_guard guard(mutex_);
  for (auto entry = files_.lower_bound(place); entry != files_.end() && entry->first.starts_with(place);) {
    if (isAtOrBelow(entry->first, place) && entry->second.scan < scan) {
      bytes_.take(entry->second.bytes);
      entry = files_.erase(entry);
    } else {
      ++entry;
    }
  }
}

bool PendingFiles::add(const std::string& path, std::uint64_t bytes) {
  const std::lock_guard guard(mutex_);
  const auto [entry, isNew] = files_.try_emplace(path);
  bytes_.take(entry->second.bytes);
  bytes_.add(bytes);
  entry->second = {bytes, scan_};
  return isNew;
}

void PendingFiles::remove(const std::string& path) {
  const std::lock_guard guard(mutex_);
  const auto entry = files_.find(path);
  if (entry != files_.end()) {
    bytes_.take(entry->second.bytes);
    files_.erase(entry);
  }
}

bool PendingFiles::contains(const std::string& path) const {
  const std::lock_guard guard(mutex_);
  return files_.contains(path);
}

bool PendingFiles::containsBelow(const std::string& folder) const {
  const std::string below = folder == "/" ? folder : folder + '/';
  const std::lock_guard guard(mutex_);
  const auto first = files_.lower_bound(below);
  return first != files_.end() && isAtOrBelow(first->first, folder);
}

PendingFiles::Totals PendingFiles::totals() const {
  const std::lock_guard guard(mutex_);
  return {files_.size(), bytes_.value()};
}

void PendingFiles::prefer(const std::string& path, std::int64_t order) {
  const std::lock_guard guard(mutex_);
  lastOrder_ = std::max(lastOrder_, order);
  preferences_.try_emplace(path, order);
}

void PendingFiles::preferNext(const std::string& path) {
  const std::lock_guard guard(mutex_);
  preferences_.try_emplace(path, ++lastOrder_);
}

void PendingFiles::endPreference(const std::string& path) {
  const std::lock_guard guard(mutex_);
  preferences_.erase(path);
}

bool PendingFiles::isPreferred(const std::string& path) const {
  const std::lock_guard guard(mutex_);
  return preferences_.contains(path);
}

std::vector<std::string> PendingFiles::preferred() const {
  const std::lock_guard guard(mutex_);
  std::vector<std::string> paths;
  for (const auto& [path, order] : preferences_) {
    paths.push_back(path);
  }
  return paths;
}

bool PendingFiles::hasPreferred() const {
  const std::lock_guard guard(mutex_);
  return std::any_of(preferences_.begin(), preferences_.end(),
                     [this](const auto& preference) { return files_.contains(preference.first); });
}

std::vector<PendingFiles::File> PendingFiles::waitingPreferred() const {
  std::map<std::int64_t, File> inOrder;
  const std::lock_guard guard(mutex_);
  for (const auto& [path, order] : preferences_) {
    const auto entry = files_.find(path);
    if (entry != files_.end()) {
      inOrder[order] = {path, entry->second.bytes};
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
  std::string from;
  do {
    files.clear();
    {
      const std::lock_guard guard(mutex_);
      for (auto entry = files_.lower_bound(from); entry != files_.end() && files.size() < kFilesAtOnce;
           ++entry) {
        files.push_back({entry->first, entry->second.bytes});
      }
    }
    if (!std::all_of(files.begin(), files.end(), visitor)) {
      return;
    }
    from = files.empty() ? from : files.back().path + '\0';
  } while (files.size() == kFilesAtOnce);
}

}  // namespace keldane
