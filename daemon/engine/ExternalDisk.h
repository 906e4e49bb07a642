// Disks that come and go, known by their file system's UUID.
#pragma once

#include <string>

namespace keldane {

/// The places where the system lists mounts and the UUIDs of devices.
struct DiskTables {
  std::string mounts = "/proc/self/mountinfo";
  std::string byUuid = "/dev/disk/by-uuid";
};

/// The UUID of the file system on which a path is, or would be made. Empty when it has none, as network and
/// memory file systems have. The path need not exist. Used on any thread.
std::string fileSystemUuidOf(const std::string& path, const DiskTables& tables = {});

/// Whether the path lies on a mounted file system with this UUID.
bool isOnFileSystem(const std::string& path, const std::string& uuid, const DiskTables& tables = {});

}  // namespace keldane
