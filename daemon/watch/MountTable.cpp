#include "daemon/watch/MountTable.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

#include "daemon/MountText.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

// File systems of other computers, of programs, and of the kernel itself.
constexpr std::array<std::string_view, 40> kNotLocal = {
    "9p",         "afs",       "autofs",    "binfmt_misc", "bpf",    "ceph",     "cgroup",   "cgroup2",
    "cifs",       "coda",      "configfs",  "debugfs",     "devpts", "devtmpfs", "efivarfs", "fuse",
    "fusectl",    "gfs2",      "hugetlbfs", "lustre",      "mqueue", "ncpfs",    "nfs",      "nfs4",
    "nsfs",       "ocfs2",     "orangefs",  "prl_fs",      "proc",   "pstore",   "pvfs2",    "rpc_pipefs",
    "securityfs", "selinuxfs", "smb3",      "smbfs",       "sysfs",  "tracefs",  "vboxsf",   "virtiofs"};

}  // namespace

MountTable MountTable::read(const std::string& file) {
  MountTable table;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    // "36 35 98:0 /root /mount/point rw,noatime master:1 - ext4 /dev/sdb1 rw"
    std::istringstream fields(line);
    Mount mount;
    std::string field;
    std::string point;
    fields >> mount.id >> field >> field >> field >> point;
    while (fields >> field && field != "-") {
    }
    fields >> mount.type >> mount.source;
    if (fields) {
      mount.source = unescapedMountText(mount.source);
      table.mounts_[unescapedMountText(point)] = std::move(mount);
    }
  }
  return table;
}

bool MountTable::hasMountsBelow(const std::string& folder) const {
  const auto below = mounts_.upper_bound(folder == "/" ? folder : folder + '/');
  return below != mounts_.end() && isAtOrBelow(below->first, folder);
}

std::string MountTable::pointOf(std::string_view path) const {
  for (;; path = parentPath(path)) {
    if (isMountPoint(path)) {
      return std::string(path);
    }
    if (path.size() <= 1) {
      return {};
    }
  }
}

const Mount* MountTable::at(std::string_view point) const {
  const auto found = mounts_.find(point);
  return found == mounts_.end() ? nullptr : &found->second;
}

bool isLocal(const Mount& mount) {
  return !mount.type.starts_with("fuse.") &&
         std::find(kNotLocal.begin(), kNotLocal.end(), mount.type) == kNotLocal.end();
}

}  // namespace keldane
