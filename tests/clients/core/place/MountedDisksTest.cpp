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

TEST(MountedDisks, AreNotWhatProgramsMountForThemselves) {
  std::istringstream mounts(
      "tmpfs /mnt/memory tmpfs rw 0 0\n"
      "share /mnt/host 9p rw 0 0\n"
      "server:/export /mnt/nfs nfs4 rw 0 0\n"
      "/dev/loop3 /mnt/image squashfs ro 0 0\n"
      "/dev/sr0 /mnt/disc iso9660 ro 0 0\n"
      "/dev/sdb1 /mnt/installer udf ro 0 0\n"
      "/dev/nvme1n1p1 /mnt/disk ext4 rw 0 0\n"
      "/dev/mapper/luks-1 /mnt/secret btrfs rw 0 0\n");
  EXPECT_EQ(diskMountPoints(mounts), (std::vector<std::string>{"/mnt/disk", "/mnt/secret"}));
}

TEST(MountedDisks, HaveASize) {
  for (const MountedDisk& disk : mountedDisks()) {
    EXPECT_LE(disk.freeBytes, disk.allBytes) << disk.path;
    EXPECT_GT(disk.allBytes, 0U) << disk.path;
  }
}

}  // namespace
}  // namespace keldane
