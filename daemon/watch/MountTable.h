// The mounted file systems.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace keldane {

struct Mount {
  std::string id;      ///< the kernel's number of this mount; a new mount gets a new one
  std::string type;    ///< such as "ext4"
  std::string source;  ///< the device, or another text for a file system without one
  bool operator==(const Mount&) const = default;
};

/// The mounts of this process at one time, by mount point. Of several mounts at the same point the last one
/// counts.
class MountTable {
 public:
  /// Reads a file like /proc/self/mountinfo. The table is empty when that fails.
  static MountTable read(const std::string& file = "/proc/self/mountinfo");

  const std::map<std::string, Mount, std::less<>>& all() const { return mounts_; }
  bool isMountPoint(std::string_view path) const { return mounts_.contains(path); }
  /// Whether a mount point lies below a folder. The folder itself does not count.
  bool hasMountsBelow(const std::string& folder) const;
  /// The mount point that a path lies at or below; empty when the table is.
  std::string pointOf(std::string_view path) const;
  /// The mount at a mount point, or null.
  const Mount* at(std::string_view point) const;

 private:
  std::map<std::string, Mount, std::less<>> mounts_;
};

/// Whether all changes on such a file system go through this kernel, so that they can be watched. This is not
/// so for a network file system, nor for one that a program serves.
bool isLocal(const Mount& mount);

}  // namespace keldane
