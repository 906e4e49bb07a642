// Disks that come and go, known by their file system's UUID.
#pragma once

#include <string>

namespace keldane {

/// Where the system tells what is mounted and which device has which UUID.
struct DiskTables {
  std::string mounts = "/proc/self/mountinfo";
  std::string byUuid = "/dev/disk/by-uuid";
};

/// The UUID of the file system that a path is, or would be made, on. Empty when it has none, as a network's
/// or a memory file system has. The path need not exist. Any thread.
std::string fileSystemUuidOf(const std::string& path, const DiskTables& tables = {});

/// Whether the path lies on a mounted file system with this UUID.
bool isOnFileSystem(const std::string& path, const std::string& uuid, const DiskTables& tables = {});

}  // namespace keldane
