// Decides what a peer may ask about and change.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/Descriptor.h"

namespace keldane {

/// The user at the other end of a connection.
struct Peer {
  uid_t uid = 0;
  gid_t gid = 0;
  std::vector<gid_t> groups;  ///< the supplementary ones
};

/// The user behind an accepted connection, with the groups that the user database gives.
Peer peerOf(uid_t uid, gid_t gid);

/// Root and the user that the daemon runs as may ask about everything and change everything.
bool isPrivileged(const Peer& peer);

/// The file system as one peer may see it. A privileged peer sees everything that this process sees. Any
/// other peer sees an item if the mode bits let it search each folder on the way and read the item itself. A
/// symbolic link on the way denies access. So does an access control list, except to the item's owner. Each
/// step begins at the folder that was checked before, so a path that somebody changes meanwhile cannot lead
/// elsewhere. Used on any thread.
class PeerAccess {
 public:
  explicit PeerAccess(Peer peer) : peer_(std::move(peer)), privileged_(keldane::isPrivileged(peer_)) {}

  const Peer& peer() const { return peer_; }
  bool isPrivileged() const { return privileged_; }

  struct Item {
    std::optional<struct stat> status;  ///< absent: nothing is there
  };
  /// The item at an absolute, normalized path; a final symbolic link is not followed. Absent when the peer
  /// may not ask. The owner of a folder may ask about items that are missing in it.
  std::optional<Item> look(const std::string& path) const;
  bool sees(const std::string& path) const { return look(path).has_value(); }
  /// Whether the peer may change the rules of an item that it sees. Its owner may.
  bool mayChange(const Item& item) const;

  /// Called with the name of each entry of a folder that the peer may ask about. It returns false to end the
  /// listing.
  using Visit = std::function<bool(const std::string& name, const struct stat& status)>;
  /// Returns false when there is no folder, or when the peer may not list it.
  bool list(const std::string& folder, const Visit& visit) const;

 private:
  struct Step {
    Descriptor handle;
    struct stat status {};
  };
  bool allows(const std::string& place, const struct stat& status, mode_t wanted) const;
  bool allows(const Step& step, mode_t wanted) const;
  bool owns(const struct stat& status) const;
  std::optional<Step> walk(const std::string& path, bool* missing) const;

  const Peer peer_;
  const bool privileged_;
};

}  // namespace keldane
