// Who may ask about what, and change what.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/Descriptor.h"

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

/// The file system as one peer may see it. A privileged one sees all that this process sees. Any other sees
/// an item that it could read by the mode bits: each folder on the way searched, the item itself read. A
/// symbolic link on the way is a no, and so is, for anybody but an item's owner, an access control list. Each
/// step is taken from the folder that was looked at before, so that a path that somebody changes meanwhile
/// leads nowhere else. Any thread.
class PeerAccess {
 public:
  explicit PeerAccess(Peer peer) : peer_(std::move(peer)), privileged_(keldane::isPrivileged(peer_)) {}

  const Peer& peer() const { return peer_; }
  bool isPrivileged() const { return privileged_; }

  struct Item {
    std::optional<struct stat> status;  ///< absent: nothing is there
  };
  /// What is at an absolute, normalized path, a final symbolic link not followed; absent when the peer may
  /// not ask. What is missing may be asked about by the owner of the folder where it is missing.
  std::optional<Item> look(const std::string& path) const;
  bool sees(const std::string& path) const { return look(path).has_value(); }
  /// Whether the peer may say what becomes of an item that it sees: the owner may.
  bool mayChange(const Item& item) const;

  /// Called with the name of each entry of a folder that the peer may ask about; false ends the list.
  using Visit = std::function<bool(const std::string& name, const struct stat& status)>;
  /// False when there is no folder, or none that the peer may list.
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
