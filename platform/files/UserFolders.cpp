#include "platform/files/UserFolders.h"

#include <pwd.h>
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

}  // namespace keldane
