// The names of the folders that running restores keep beside their targets. This header needs no other, so
// that the rules can bar these names from the backup.
#pragma once

#include <algorithm>
#include <string_view>

namespace keldane {

inline constexpr std::string_view kRestoreStagingPrefix = ".keldane-restore-";
inline constexpr std::size_t kRestoreStagingLetters = 6;

/// Whether a name is that of a restore's staging: the prefix, a job's number, "-" and six letters or digits.
inline bool isRestoreStagingName(std::string_view name) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const auto isLetter = [&](char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  if (!name.starts_with(kRestoreStagingPrefix)) {
    return false;
  }
  name.remove_prefix(kRestoreStagingPrefix.size());
  const std::size_t dash = name.find('-');
  return dash != std::string_view::npos && dash > 0 && name.size() - dash - 1 == kRestoreStagingLetters &&
         std::all_of(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(dash), isDigit) &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(dash) + 1, name.end(), isLetter);
}

/// Whether a path is, or lies in, the staging of a restore.
inline bool isRestoreStaging(std::string_view path) {
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    if (isRestoreStagingName(path.substr(0, slash))) {
      return true;
    }
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
  }
  return false;
}

}  // namespace keldane
