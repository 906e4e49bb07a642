#include "daemon/engine/ExternalDisk.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "daemon/MountText.h"
#include "platform/files/Path.h"

namespace keldane {
namespace {

/// The device whose file system the path is on; empty when it has none.
std::string deviceOf(const std::string& path, const std::string& mounts) {
  std::error_code error;
  std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
  const std::string wanted = error ? path : real.string();
  std::ifstream table(mounts);
  std::string device;
  std::size_t longest = 0;
  for (std::string line; std::getline(table, line);) {
    // "36 35 98:0 /root /mount/point rw,noatime master:1 - ext4 /dev/sdb1 rw"
    std::istringstream fields(line);
    std::string field;
    std::string point;
    fields >> field >> field >> field >> field >> point;
    while (fields >> field && field != "-") {
    }
    std::string source;
    fields >> field >> source;
    point = unescapedMountText(point);
    // A later mount at the same point hides the earlier one.
    if (fields && point.size() >= longest && isAtOrBelow(wanted, point)) {
      longest = point.size();
      device = unescapedMountText(source);
    }
  }
  if (!device.starts_with('/')) {
    return {};
  }
  real = std::filesystem::canonical(device, error);
  return error ? std::string() : real.string();
}

}  // namespace

std::string fileSystemUuidOf(const std::string& path, const DiskTables& tables) {
  const std::string device = deviceOf(path, tables.mounts);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(tables.byUuid, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code broken;
    if (!device.empty() && std::filesystem::canonical(entry->path(), broken) == device && !broken) {
      return entry->path().filename().string();
    }
  }
  return {};
}

bool isOnFileSystem(const std::string& path, const std::string& uuid, const DiskTables& tables) {
  return !uuid.empty() && fileSystemUuidOf(path, tables) == uuid;
}

}  // namespace keldane
