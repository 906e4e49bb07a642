#include "daemon/Permissions.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "daemon/FileFacts.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr mode_t kSearch = 1;
constexpr mode_t kRead = 4;

bool allows(const Peer& peer, const struct stat& status, mode_t wanted) {
  const bool inGroup = peer.gid == status.st_gid ||
                       std::find(peer.groups.begin(), peer.groups.end(), status.st_gid) != peer.groups.end();
  // The owner's bits decide for the owner, even when others may do more.
  const unsigned shift = peer.uid == status.st_uid ? 6 : inGroup ? 3 : 0;
  return (status.st_mode >> shift & wanted) == wanted;
}

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

bool mayRead(const Peer& peer, const std::string& path) {
  std::string current;
  bool folderReadable = false;
  const std::vector<std::string> components = pathComponents(path);
  for (std::size_t i = 0; i < components.size(); ++i) {
    current = appendPathComponent(current, components[i]);
    errno = 0;
    const std::optional<struct stat> status = statusOf(current);
    if (!status) {
      return errno == ENOENT && folderReadable;
    }
    if (i + 1 == components.size()) {
      return S_ISLNK(status->st_mode) ? folderReadable : allows(peer, *status, kRead);
    }
    if (!S_ISDIR(status->st_mode) || !allows(peer, *status, kSearch)) {
      return false;
    }
    folderReadable = allows(peer, *status, kRead);
  }
  return false;
}

}  // namespace keldane
