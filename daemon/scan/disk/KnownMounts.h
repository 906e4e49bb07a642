// Mounted file systems that contain stored files, and whether they are mounted now.
#pragma once

#include <map>
#include <string>

#include "daemon/store/Store.h"
#include "daemon/watch/MountTable.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Remembers, in the store's settings, the mount points below which included files lie, and the file system
/// that was mounted there. This tells a disk that is not connected from files that were deleted. Used on any
/// thread.
class KnownMounts {
 public:
  explicit KnownMounts(Store& store);

  /// The mounts as they are now.
  MountTable refresh();
  /// Remembers the mount point of a path, unless it is "/".
  void remember(const std::string& path);
  /// Whether a path lies at or below a remembered mount point whose file system is not mounted now. The
  /// mounts are read anew if any mount point is remembered.
  bool isHidden(const std::string& path) const;
  /// Whether such a mount point lies below a path.
  bool hidesBelow(const std::string& path) const;

 private:
  bool isAbsent(const std::string& point, const std::string& uuid) const KELDANE_REQUIRES(mutex_);
  std::string uuidAt(const std::string& point) const KELDANE_REQUIRES(mutex_);
  void save() KELDANE_REQUIRES(mutex_);

  Store& store_;
  mutable Mutex mutex_{{.name = "KnownMounts.mutex"}};
  mutable MountTable table_ KELDANE_GUARDED_BY(mutex_);
  std::map<std::string, std::string, std::less<>> known_ KELDANE_GUARDED_BY(mutex_);  // UUID by mount point
  struct Identity {
    std::string mount;  // its number
    std::string uuid;
  };
  mutable std::map<std::string, Identity> identities_ KELDANE_GUARDED_BY(mutex_);  // by mount point
};

}  // namespace keldane
