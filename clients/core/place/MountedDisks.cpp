#include "clients/core/place/MountedDisks.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <fstream>
#include <span>
#include <sstream>

namespace keldane {

namespace {

constexpr std::string_view kDiskFolders[] = {"/media/", "/run/media/", "/mnt/"};
// A disk of this computer has a device file; these devices are no disks, or not writable.
constexpr std::string_view kNoDisks[] = {"/dev/loop", "/dev/zram", "/dev/ram", "/dev/sr"};
constexpr std::string_view kNoDiskKinds[] = {"squashfs", "erofs", "iso9660", "udf"};

bool startsWithOne(std::string_view text, std::span<const std::string_view> beginnings) {
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [&](std::string_view each) { return text.starts_with(each); });
}

// Excludes what programs mount below /mnt for themselves: shares of a host, memory, images, and bind mounts.
bool isDiskDevice(std::string_view source, std::string_view kind) {
  return source.starts_with("/dev/") && !startsWithOne(source, kNoDisks) &&
         std::find(std::begin(kNoDiskKinds), std::end(kNoDiskKinds), kind) == std::end(kNoDiskKinds);
}

// The mount table writes a blank as \040, and a few other characters in the same way.
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
    std::string source, point, kind;
    fields >> source >> point >> kind;
    point = unescaped(point);
    const bool isPluggedIn = point == "/mnt" || startsWithOne(point, kDiskFolders);
    // A desktop mounts other computers' shares elsewhere, so a person chose anything that is mounted below
    // /media.
    const bool isByHand = point.starts_with("/mnt");
    if (isPluggedIn && (!isByHand || isDiskDevice(source, kind)) &&
        std::find(points.begin(), points.end(), point) == points.end()) {
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
