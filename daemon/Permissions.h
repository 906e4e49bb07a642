// Who may ask about what.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace keldane {

/// A user as the system sees the other end of a connection.
struct Peer {
  uid_t uid = 0;
  gid_t gid = 0;
  std::vector<gid_t> groups;  ///< the supplementary ones
};

/// The user behind an accepted connection, with the groups that the user database gives.
Peer peerOf(uid_t uid, gid_t gid);

/// Root and the user that the daemon runs as may ask about everything and change everything.
bool isPrivileged(const Peer& peer);

/// Whether the user could read the item at an absolute, normalized path: search every folder on the way and
/// read the item, by the mode bits. A symbolic link on the way, and whatever cannot be looked at, is a no;
/// what does not exist may be asked about by who can read the folder where it is missing.
bool mayRead(const Peer& peer, const std::string& path);

}  // namespace keldane
