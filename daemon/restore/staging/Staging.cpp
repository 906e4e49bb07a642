#include "daemon/restore/staging/Staging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "daemon/restore/placing/PlaceItem.h"
#include "daemon/restore/staging/RestoreStaging.h"
#include "daemon/restore/staging/StagedFolder.h"
#include "platform/files/Path.h"

namespace keldane {

std::string Staging::nameFor(std::uint32_t job) {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::uniform_int_distribution<std::size_t> letter(0, kLetters.size() - 1);
  std::string name = std::string(kRestoreStagingPrefix) + std::to_string(job) + "-";
  for (std::size_t i = 0; i < kRestoreStagingLetters; ++i) {
    name += kLetters[letter(random)];
  }
  return name;
}

Staging::Staging(const std::string& parent, std::string name)
    : parent_(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), name_(std::move(name)) {}

Staging Staging::make(const std::string& parent, const std::string& name) {
  Staging staging(parent, name);
  if (staging.parent_ && mkdirat(staging.parent_.get(), name.c_str(), S_IRWXU) == 0) {
    staging.folder_ = Descriptor(openFolderIn(staging.parent_.get(), name.c_str(), O_RDONLY));
  }
  return staging;
}

Staging Staging::open(const std::string& path) {
  const std::string name = lastPathComponent(path);
  Staging staging(path.substr(0, path.size() - std::min(path.size(), name.size() + 1)) + "/", name);
  if (!isRestoreStagingName(name) || !staging.parent_) {
    return staging;
  }
  struct stat status {};
  staging.folder_ = Descriptor(openFolderIn(staging.parent_.get(), name.c_str(), O_RDONLY));
  if (staging.folder_ && (fstat(staging.folder_.get(), &status) != 0 || status.st_uid != geteuid() ||
                          (status.st_mode & (S_IRWXG | S_IRWXO)) != 0)) {
    staging.folder_ = Descriptor();
  }
  return staging;
}

std::string Staging::makePart(const std::string& part) const {
  mkdirat(folder_.get(), part.c_str(), S_IRWXU);
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(folder_.get()) + "/" + part;
}

void Staging::remove() {
  if (!folder_) {
    return;
  }
  for (const std::string& name : namesIn(folder_.get())) {
    removeTree(folder_.get(), name);
  }
  unlinkat(parent_.get(), name_.c_str(), AT_REMOVEDIR);  // removes an empty folder only
  folder_ = Descriptor();
}

std::string deepestFolder(const std::string& path) {
  std::string deepest = "/";
  Descriptor folder(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : pathComponents(path)) {
    if (name == "/") {
      continue;
    }
    folder = Descriptor(openFolderIn(folder.get(), name.c_str(), O_PATH));
    if (!folder) {
      break;
    }
    deepest = appendPathComponent(deepest, name);
  }
  return deepest;
}

MountPlace mountPlace(const std::string& folder) {
  struct statx status {};
  if (statx(AT_FDCWD, folder.c_str(), 0, STATX_BASIC_STATS | STATX_MNT_ID, &status) != 0) {
    return {};
  }
  return {makedev(status.stx_dev_major, status.stx_dev_minor),
          (status.stx_mask & STATX_MNT_ID) != 0 ? status.stx_mnt_id : 0};
}

}  // namespace keldane
