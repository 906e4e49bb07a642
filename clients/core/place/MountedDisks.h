// The disks that a person has plugged in.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace keldane {

struct MountedDisk {
  std::string path;  ///< the mount point
  std::uint64_t freeBytes = 0, allBytes = 0;
};

/// The mount points of removable disks in a table of the system's format: those below /media and /run/media,
/// and those below /mnt that have a disk's device.
std::vector<std::string> diskMountPoints(std::istream& mounts);
/// The disks that are mounted now, by path.
std::vector<MountedDisk> mountedDisks();

}  // namespace keldane
