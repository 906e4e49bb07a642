#include "clients/core/place/MountedDisks.h"

#include <gtest/gtest.h>

#include <sstream>

namespace keldane {
namespace {

TEST(MountedDisks, AreThoseWherePeoplePlugThemIn) {
  std::istringstream mounts(
      "/dev/sda1 / ext4 rw 0 0\n"
      "/dev/sdb1 /run/media/me/My\\040disk ext4 rw 0 0\n"
      "/dev/sdc1 /media/stick vfat rw 0 0\n"
      "/dev/sdc1 /media/stick vfat rw 0 0\n"
      "/dev/sdd1 /mnt ext4 rw 0 0\n"
      "/dev/sde1 /mnt/odd\\134\\0 ext4 rw 0 0\n"
      "/dev/sdf1 /mntx ext4 rw 0 0\n"
      "tmpfs /run tmpfs rw 0 0\n"
      "\n"
      "short");
  EXPECT_EQ(diskMountPoints(mounts),
            (std::vector<std::string>{"/media/stick", "/mnt", "/mnt/odd\\\\0", "/run/media/me/My disk"}));
}

TEST(MountedDisks, HaveASize) {
  for (const MountedDisk& disk : mountedDisks()) {
    EXPECT_LE(disk.freeBytes, disk.allBytes) << disk.path;
    EXPECT_GT(disk.allBytes, 0U) << disk.path;
  }
}

}  // namespace
}  // namespace keldane
