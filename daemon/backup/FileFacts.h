// What the file system says of a path.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

#include "daemon/store/Store.h"

namespace keldane {

/// Nanoseconds since the UNIX epoch.
inline std::int64_t modificationTime(const struct stat& status) {
  return std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
}

/// Absent when nothing is there. A final symbolic link is not followed.
inline std::optional<struct stat> statusOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

/// Whether a file is as it was when it was recorded.
inline bool isUnchanged(const struct stat& status, const BackupRecord& record) {
  return static_cast<std::uint64_t>(status.st_size) == record.size &&
         modificationTime(status) == record.modified;
}

}  // namespace keldane
