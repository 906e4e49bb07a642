#include "platform/files/UserFolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace keldane {

namespace {

namespace fs = std::filesystem;

fs::path absoluteFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value == '/' ? fs::path(value) : fs::path();
}

constexpr mode_t kPermissions = 07777;

}  // namespace

fs::path homeFolder() {
  if (fs::path home = absoluteFromEnvironment("HOME"); !home.empty()) {
    return home;
  }
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && *found->pw_dir == '/') {
    return found->pw_dir;
  }
  return "/";
}

fs::path configurationFolder() {
  const fs::path folder = absoluteFromEnvironment("XDG_CONFIG_HOME");
  return folder.empty() ? homeFolder() / ".config" : folder;
}

std::vector<fs::path> dataFolders() {
  const fs::path own = absoluteFromEnvironment("XDG_DATA_HOME");
  std::vector<fs::path> folders = {own.empty() ? homeFolder() / ".local" / "share" : own};
  const char* given = std::getenv("XDG_DATA_DIRS");
  std::string_view list = given != nullptr && *given != '\0' ? given : "/usr/local/share:/usr/share";
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(':'), list.size());
    if (list.starts_with('/')) {
      folders.emplace_back(list.substr(0, end));
    }
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return folders;
}

fs::path stateFolder() {
  const fs::path folder = absoluteFromEnvironment("XDG_STATE_HOME");
  return folder.empty() ? homeFolder() / ".local" / "state" : folder;
}

std::optional<fs::path> runtimeFolder(const fs::path& fallbacks) {
  struct stat status {};
  const fs::path given = absoluteFromEnvironment("XDG_RUNTIME_DIR");
  if (!given.empty() && lstat(given.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
      status.st_uid == geteuid() && (status.st_mode & kPermissions) == S_IRWXU) {
    return given;
  }
  const fs::path usual = fallbacks / std::to_string(geteuid());
  if (lstat(usual.c_str(), &status) != 0) {
    return usual;
  }
  const bool isOwn = S_ISDIR(status.st_mode) && status.st_uid == geteuid();
  return isOwn && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? std::optional(usual) : std::nullopt;
}

}  // namespace keldane
