// Facts about a file that the file system reports.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "daemon/store/Store.h"

namespace keldane {

/// Nanoseconds since the UNIX epoch. A date before 1677 or after 2262 does not fit and becomes the first or
/// the last date that fits. The engine does the same.
inline std::int64_t nanoseconds(const timespec& time) {
  constexpr std::int64_t kBillion = 1'000'000'000;
  using Limits = std::numeric_limits<std::int64_t>;
  const auto seconds = std::int64_t{time.tv_sec};
  return seconds >= Limits::max() / kBillion    ? Limits::max()
         : seconds <= -Limits::max() / kBillion ? Limits::min()
                                                : seconds * kBillion + time.tv_nsec;
}

/// Absent when nothing is there. A final symbolic link is not followed.
inline std::optional<struct stat> statusOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

/// The user whose share of the batches contains the file. A daemon of an ordinary user works for that user
/// alone, so there the owner of a file does not matter, and this is 0.
inline uid_t ownerOf(const struct stat& status) {
  static const bool isForAll = geteuid() == 0;
  return isForAll ? status.st_uid : 0;
}

/// Whether the backup keeps versions of such an item. It does for files and for symbolic links.
inline bool isStorable(const struct stat& status) {
  return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode);
}

/// The size of a link is 0, as it is in the repository.
inline FileState fileStateOf(const struct stat& status) {
  return {S_ISLNK(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size),
          nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

/// Whether a file is as it was when it was stored, and its stored bytes are whole.
inline bool isUnchanged(const struct stat& status, const BackupRecord& record) {
  return !record.damaged && fileStateOf(status) == static_cast<const FileState&>(record);
}

}  // namespace keldane
