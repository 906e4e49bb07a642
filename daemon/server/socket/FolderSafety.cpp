#include "daemon/server/socket/FolderSafety.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace keldane {

namespace {

namespace fs = std::filesystem;

// In a sandbox that maps only its own user, root has no number, but owns "/" all the same.
bool rootHasNoNumber() {
  std::ifstream map("/proc/self/uid_map");
  for (std::uint64_t inside = 0, outside = 0, count = 0; map >> inside >> outside >> count;) {
    if (inside == 0) {
      return false;
    }
  }
  return true;
}

bool isTrusted(uid_t owner) {
  return owner == 0 || owner == geteuid() || (owner == kSomebody && rootHasNoNumber());
}

}  // namespace

std::optional<std::string> whoElseCanWriteTo(const std::string& folder) {
  std::error_code error;
  const fs::path real = fs::canonical(folder, error);
  fs::path current;
  for (const fs::path& component : real) {
    current /= component;
    struct stat status {};
    if (error || lstat(current.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
      return "The folder " + folder + " cannot be looked at.";
    }
    if (!isTrusted(status.st_uid)) {
      return "The folder " + current.string() + " belongs to another user.";
    }
    const bool isOpen = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isOpen && (current == real || (status.st_mode & S_ISVTX) == 0)) {
      return "Others can write to the folder " + current.string() + ".";
    }
  }
  return error ? std::optional("The folder " + folder + " cannot be looked at.") : std::nullopt;
}

}  // namespace keldane
