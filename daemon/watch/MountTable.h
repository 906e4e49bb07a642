// What is mounted where.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace keldane {

struct Mount {
  std::string id;      ///< the number that the kernel gave this mount; another one after it was mounted anew
  std::string type;    ///< such as "ext4"
  std::string source;  ///< the device, or what else stands in its place
  bool operator==(const Mount&) const = default;
};

/// The mounts of this process at one time, by mount point. A value; where several are mounted over each
/// other, the last one counts.
class MountTable {
 public:
  /// Of a file like /proc/self/mountinfo. Empty when it cannot be read.
  static MountTable read(const std::string& file = "/proc/self/mountinfo");

  const std::map<std::string, Mount, std::less<>>& all() const { return mounts_; }
  bool isMountPoint(std::string_view path) const { return mounts_.contains(path); }
  /// Whether something is mounted below a folder, not at it.
  bool hasMountsBelow(const std::string& folder) const;
  /// The mount point that a path lies at or below; empty when the table is.
  std::string pointOf(std::string_view path) const;
  /// Of a mount point.
  const Mount* at(std::string_view point) const;

 private:
  std::map<std::string, Mount, std::less<>> mounts_;
};

/// Whether all changes of such a file system go through this kernel, so that it can tell of them: no network
/// file system, and none that a program serves.
bool isLocal(const Mount& mount);

}  // namespace keldane
