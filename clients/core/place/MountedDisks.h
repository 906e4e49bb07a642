// Disks that a person has plugged in.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace keldane {

struct MountedDisk {
  std::string path;  ///< where it is mounted
  std::uint64_t freeBytes = 0, allBytes = 0;
};

/// The mount points in a table of the system's form that lie where removable disks are mounted: /media,
/// /run/media and, those with a disk's device, /mnt.
std::vector<std::string> diskMountPoints(std::istream& mounts);
/// Those that are there now, by path.
std::vector<MountedDisk> mountedDisks();

}  // namespace keldane
