#include "clients/preferences/worker/own/FolderSizes.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace keldane {

FolderSize sizeOfFolder(const std::string& path) {
  FolderSize size;
  std::optional<dev_t> device;
  std::vector<std::string> folders = {path};
  while (!folders.empty()) {
    const std::string folder = std::move(folders.back());
    folders.pop_back();
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder.c_str()), closedir);
    struct stat status {};
    if (!directory || fstat(dirfd(directory.get()), &status) != 0 ||
        status.st_dev != device.value_or(status.st_dev)) {
      continue;
    }
    device = status.st_dev;
    while (const dirent* const entry = readdir(directory.get())) {
      const std::string_view name = entry->d_name;
      if (name == "." || name == ".." ||
          fstatat(dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        continue;
      }
      if (S_ISDIR(status.st_mode)) {
        folders.push_back(folder + '/' + std::string(name));
      } else if (S_ISREG(status.st_mode)) {
        ++size.files;
        size.bytes += static_cast<std::uint64_t>(status.st_size);
      }
    }
  }
  return size;
}

}  // namespace keldane
