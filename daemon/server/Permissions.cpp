#include "daemon/server/Permissions.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "daemon/scan/disk/FileFacts.h"
#include "daemon/server/socket/FolderSafety.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr mode_t kSearch = 1;
constexpr mode_t kRead = 4;

std::string placeOf(int handle) { return "/proc/self/fd/" + std::to_string(handle); }

}  // namespace

Peer peerOf(uid_t uid, gid_t gid) {
  Peer peer{uid, gid, {}};
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    int count = 64;
    peer.groups.resize(static_cast<std::size_t>(count));
    if (getgrouplist(found->pw_name, gid, peer.groups.data(), &count) < 0) {
      peer.groups.resize(static_cast<std::size_t>(std::max(count, 0)));
      getgrouplist(found->pw_name, gid, peer.groups.data(), &count);
    }
    peer.groups.resize(static_cast<std::size_t>(std::max(count, 0)));
  }
  return peer;
}

bool isPrivileged(const Peer& peer) { return peer.uid == 0 || peer.uid == geteuid(); }

bool PeerAccess::owns(const struct stat& status) const {
  return peer_.uid == status.st_uid && peer_.uid != kSomebody;
}

// `place` is a path through a descriptor that leads to the item even if its own path changes meanwhile.
bool PeerAccess::allows(const std::string& place, const struct stat& status, mode_t wanted) const {
  const auto isIn = [&](gid_t group) { return group == status.st_gid && group != kSomebody; };
  const bool inGroup = isIn(peer_.gid) || std::any_of(peer_.groups.begin(), peer_.groups.end(), isIn);
  // The owner's bits decide for the owner, even when others may do more.
  const unsigned shift = owns(status) ? 6 : inGroup ? 3 : 0;
  if ((status.st_mode >> shift & wanted) != wanted) {
    return false;
  }
  return owns(status) || getxattr(place.c_str(), "system.posix_acl_access", nullptr, 0) <= 0;
}

bool PeerAccess::allows(const Step& step, mode_t wanted) const {
  return allows(placeOf(step.handle.get()), step.status, wanted);
}

// The step is absent when the peer has no access, or when nothing is there. `missing` tells the two apart for
// the owner of the folder.
std::optional<PeerAccess::Step> PeerAccess::walk(const std::string& path, bool* missing) const {
  *missing = false;
  const std::vector<std::string> components = pathComponents(path);
  Step current{Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)), {}};
  if (!current.handle || fstat(current.handle.get(), &current.status) != 0 || components.empty()) {
    return std::nullopt;
  }
  for (std::size_t i = 1; i < components.size(); ++i) {
    if (!S_ISDIR(current.status.st_mode) || !allows(current, kSearch)) {
      return std::nullopt;
    }
    Step next{
        Descriptor(openat(current.handle.get(), components[i].c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC)), {}};
    if (!next.handle) {
      *missing = errno == ENOENT && owns(current.status);
      return std::nullopt;
    }
    if (fstat(next.handle.get(), &next.status) != 0) {
      return std::nullopt;
    }
    const bool isLast = i + 1 == components.size();
    if (isLast && S_ISLNK(next.status.st_mode) && !allows(current, kRead)) {
      return std::nullopt;
    }
    current = std::move(next);
  }
  return current;
}

std::optional<PeerAccess::Item> PeerAccess::look(const std::string& path) const {
  if (privileged_) {
    return Item{statusOf(path)};
  }
  bool missing = false;
  const std::optional<Step> found = walk(path, &missing);
  if (!found) {
    return missing ? std::optional(Item{}) : std::nullopt;
  }
  if (!S_ISLNK(found->status.st_mode) && !allows(*found, kRead)) {
    return std::nullopt;
  }
  return Item{found->status};
}

bool PeerAccess::mayChange(const Item& item) const {
  return privileged_ || !item.status || owns(*item.status);
}

bool PeerAccess::list(const std::string& folder, const Visit& visit) const {
  Descriptor handle;
  if (privileged_) {
    handle = Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  } else {
    bool missing = false;
    const std::optional<Step> found = walk(folder, &missing);
    if (found && S_ISDIR(found->status.st_mode) && allows(*found, kRead | kSearch)) {
      handle = Descriptor(openat(found->handle.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(handle ? fdopendir(dup(handle.get())) : nullptr,
                                                    closedir);
  if (!entries) {
    return false;
  }
  const std::string place = placeOf(handle.get()) + '/';
  while (const dirent* entry = readdir(entries.get())) {
    const std::string name = entry->d_name;
    struct stat status {};
    if (name == "." || name == ".." ||
        fstatat(handle.get(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    if (!privileged_ && !S_ISLNK(status.st_mode) && !allows(place + name, status, kRead)) {
      continue;
    }
    if (!visit(name, status)) {
      break;
    }
  }
  return true;
}

}  // namespace keldane
