#include "daemon/restore/staging/StagedFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "daemon/restore/placing/PlaceItem.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

// Removes the items that are not to stay, and returns whether there were any.
bool filterFolder(int folder, const std::string& path, const Stays& stays) {
  bool isChanged = false;
  for (const std::string& name : namesIn(folder)) {
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    const std::string whole = appendPathComponent(path, name);
    if (!S_ISDIR(status.st_mode)) {
      if (!stays(folder, name, whole, status)) {
        unlinkat(folder, name.c_str(), 0);
        isChanged = true;
      }
      continue;
    }
    bool isEmptied = false;
    {
      const StagedFolder below(folder, name);
      isEmptied = below && filterFolder(below.get(), whole, stays) && namesIn(below.get()).empty();
    }
    if (isEmptied) {
      unlinkat(folder, name.c_str(), AT_REMOVEDIR);
      isChanged = true;
    }
  }
  return isChanged;
}

}  // namespace

StagedFolder::StagedFolder(int parent, const std::string& name) {
  int opened = openFolderIn(parent, name.c_str(), O_RDONLY);
  if (opened < 0 && errno == EACCES && fstatat(parent, name.c_str(), &status_, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISDIR(status_.st_mode) && setModeIn(parent, name.c_str(), S_IRWXU)) {
    opened = openFolderIn(parent, name.c_str(), O_RDONLY);
  } else if (opened >= 0) {
    fstat(opened, &status_);
  }
  folder_ = Descriptor(opened);
  if (folder_ && (status_.st_mode & S_IRWXU) != S_IRWXU) {
    fchmod(opened, (status_.st_mode & 07777) | S_IRWXU);
  }
}

StagedFolder::~StagedFolder() {
  if (!folder_) {
    return;
  }
  if ((status_.st_mode & S_IRWXU) != S_IRWXU) {
    fchmod(folder_.get(), status_.st_mode & 07777);
  }
  const timespec times[] = {status_.st_atim, status_.st_mtim};
  futimens(folder_.get(), times);
}

std::vector<std::string> namesIn(int folder) {
  std::vector<std::string> names;
  const int again = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, CloseFolder> stream(again < 0 ? nullptr : fdopendir(again));
  if (!stream) {
    if (again >= 0) {
      close(again);
    }
    return names;
  }
  while (const dirent* entry = readdir(stream.get())) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(std::move(name));
    }
  }
  return names;
}

void removeTree(int parent, const std::string& name) {
  if (unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) {
    return;
  }
  struct stat above {};
  fstat(parent, &above);
  {
    const StagedFolder folder(parent, name);
    if (!folder || folder.status().st_dev != above.st_dev) {
      return;
    }
    for (const std::string& below : namesIn(folder.get())) {
      removeTree(folder.get(), below);
    }
  }
  unlinkat(parent, name.c_str(), AT_REMOVEDIR);
}

TreeCount countTree(int parent, const std::string& name) {
  struct stat status {};
  if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return {};
  }
  if (!S_ISDIR(status.st_mode)) {
    return {1, S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0};
  }
  TreeCount count;
  if (const StagedFolder folder(parent, name); folder) {
    for (const std::string& below : namesIn(folder.get())) {
      const TreeCount more = countTree(folder.get(), below);
      count.files += more.files;
      count.bytes += more.bytes;
    }
  }
  return count;
}

void filterTree(int folder, const std::string& path, const Stays& stays) {
  filterFolder(folder, path, stays);
}

}  // namespace keldane
