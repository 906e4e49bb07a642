#include "daemon/watch/FolderWatches.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <limits>
#include <utility>

#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr std::uint32_t kNames =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t kFiles = kNames | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB;
// Links are not followed. The target is watched if it belongs to a place itself.
constexpr std::uint32_t kHow = IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;

/// The reason why a folder could not be watched.
int reasonAgainst(const std::string& folder) {
  struct stat status {};
  return lstat(folder.c_str(), &status) != 0 ? errno : S_ISDIR(status.st_mode) ? ENOSPC : ENOTDIR;
}

}  // namespace

FolderWatches::FolderWatches(std::size_t most)
    : most_(most), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

std::size_t FolderWatches::shareOfWatches() {
  std::size_t all = std::numeric_limits<std::size_t>::max();  // when the limit cannot be read
  std::ifstream("/proc/sys/fs/inotify/max_user_watches") >> all;
  return all - all / 10;
}

FolderWatches::Outcome FolderWatches::add(const std::string& folder, Depth depth) {
  const auto known = watches_.find(folder);
  if (known != watches_.end()) {
    depth = std::max(depth, known->second.depth);
  }
  // The events are added to those of the watch, because a folder with two paths serves both.
  const std::uint32_t mask = (depth == Depth::names ? kNames : kFiles) | kHow | IN_MASK_ADD;
  const bool isLeft = byNumber_.size() < most_ || (known != watches_.end() && known->second.number >= 0);
  const int number = isLeft ? inotify_add_watch(inotify_.get(), folder.c_str(), mask) : -1;
  const int reason = number >= 0 ? 0 : isLeft ? errno : reasonAgainst(folder);
  if (reason == ENOENT || reason == ENOTDIR || reason == ELOOP || reason == ENAMETOOLONG) {
    return Outcome::notThere;
  }
  const auto watch = watches_.try_emplace(folder).first;
  watch->second.depth = depth;
  connect(watch, number >= 0 ? number : kNone);
  // A folder without read permission cannot be watched, and the scanner reports it.
  return number >= 0 || reason == EACCES ? Outcome::watched : Outcome::noneLeft;
}

void FolderWatches::addUnwatched(const std::string& folder) {
  const auto watch = watches_.try_emplace(folder).first;
  watch->second.depth = Depth::whole;
  connect(watch, kNone);
}

void FolderWatches::addTold(const std::string& folder) {
  const auto watch = watches_.try_emplace(folder).first;
  watch->second.depth = Depth::whole;
  connect(watch, kTold);
}

bool FolderWatches::isWatched(const std::string& folder, Depth depth) const {
  const auto watch = watches_.find(folder);
  return watch != watches_.end() && watch->second.number >= 0 && watch->second.depth >= depth;
}

bool FolderWatches::isWhole(const std::string& folder) const {
  const auto watch = watches_.find(folder);
  return watch != watches_.end() && watch->second.depth == Depth::whole;
}

void FolderWatches::connect(Watches::iterator watch, int number) {
  if (watch->second.number != number) {
    disconnect(watch);
    watch->second.number = number;
    told_ += number == kTold ? 1 : 0;
    if (number >= 0) {
      byNumber_.emplace(number, &watch->first);
    }
  }
}

// The kernel's watch ends with the last path of its folder.
void FolderWatches::disconnect(Watches::iterator watch) {
  const int number = std::exchange(watch->second.number, kNone);
  told_ -= number == kTold ? 1 : 0;
  const auto [first, last] = byNumber_.equal_range(number);
  const auto own = std::find_if(first, last, [&](const auto& path) { return path.second == &watch->first; });
  if (own != last) {
    byNumber_.erase(own);
    if (!byNumber_.contains(number)) {
      inotify_rm_watch(inotify_.get(), number);
    }
  }
}

FolderWatches::Watches::iterator FolderWatches::erase(Watches::iterator watch) {
  disconnect(watch);
  return watches_.erase(watch);
}

void FolderWatches::drop(const std::string& folder) {
  if (const auto own = watches_.find(folder); own != watches_.end()) {
    erase(own);
  }
  const std::string below = folder == "/" ? folder : folder + '/';
  for (auto watch = watches_.lower_bound(below);
       watch != watches_.end() && watch->first.starts_with(below);) {
    watch = erase(watch);
  }
}

void FolderWatches::forget(int watch) {
  for (const std::string& folder : foldersOf(watch)) {
    erase(watches_.find(folder));
  }
}

std::vector<std::string> FolderWatches::foldersOf(int watch) const {
  std::vector<std::string> folders;
  const auto [first, last] = byNumber_.equal_range(watch);
  for (auto path = first; path != last; ++path) {
    folders.push_back(*path->second);
  }
  return folders;
}

std::vector<std::string> FolderWatches::unwatchedAfter(std::string_view last, std::size_t most) const {
  std::vector<std::string> folders;
  for (auto watch = watches_.upper_bound(last); watch != watches_.end() && folders.size() < most; ++watch) {
    if (watch->second.number == kNone && watch->second.depth == Depth::whole) {
      folders.push_back(watch->first);
    }
  }
  return folders;
}

}  // namespace keldane
