#include "clients/core/place/MountedDisks.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace keldane {

namespace {

constexpr std::string_view kDiskFolders[] = {"/media/", "/run/media/", "/mnt/"};

// The table writes a blank as \040, and a few others likewise.
std::string unescaped(std::string_view text) {
  const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
        isOctal(text[i + 3])) {
      result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

}  // namespace

std::vector<std::string> diskMountPoints(std::istream& mounts) {
  std::vector<std::string> points;
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream fields(line);
    std::string source, point;
    fields >> source >> point;
    point = unescaped(point);
    const bool isDisk =
        point == "/mnt" || std::any_of(std::begin(kDiskFolders), std::end(kDiskFolders),
                                       [&](std::string_view each) { return point.starts_with(each); });
    if (isDisk && std::find(points.begin(), points.end(), point) == points.end()) {
      points.push_back(point);
    }
  }
  std::sort(points.begin(), points.end());
  return points;
}

std::vector<MountedDisk> mountedDisks() {
  std::ifstream mounts("/proc/self/mounts");
  std::vector<MountedDisk> disks;
  for (const std::string& point : diskMountPoints(mounts)) {
    struct statvfs status {};
    if (statvfs(point.c_str(), &status) == 0 && status.f_blocks > 0) {
      disks.push_back({point, std::uint64_t{status.f_bavail} * status.f_frsize,
                       std::uint64_t{status.f_blocks} * status.f_frsize});
    }
  }
  return disks;
}

}  // namespace keldane
