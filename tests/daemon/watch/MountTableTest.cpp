#include "daemon/watch/MountTable.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

TEST(MountTableTest, ReadsPointsTypesAndSources) {
  const TemporaryFolder folder;
  const MountTable table = MountTable::read(
      folder.write("mountinfo",
                   "22 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
                   "30 22 0:30 / /media/my\\040disk rw shared:3 master:1 - fuse.sshfs me@there:/x rw\n"
                   "31 22 0:31 / /tmp rw - tmpfs tmpfs rw\n"
                   "32 22 8:1 /sub /tmp rw - xfs /dev/sda1 rw\n"
                   "half a line\n"));
  EXPECT_EQ(table.all().size(), 3U);
  ASSERT_NE(table.at("/media/my disk"), nullptr);
  EXPECT_EQ(*table.at("/media/my disk"), (Mount{"30", "fuse.sshfs", "me@there:/x"}));
  EXPECT_EQ(table.at("/tmp")->type, "xfs") << "the last one hides what was there";
  EXPECT_EQ(table.pointOf("/media/my disk/a/b"), "/media/my disk");
  EXPECT_EQ(table.pointOf("/media/my"), "/");
  EXPECT_EQ(table.pointOf("/tmp"), "/tmp");
  EXPECT_TRUE(table.hasMountsBelow("/media"));
  EXPECT_TRUE(table.hasMountsBelow("/"));
  EXPECT_FALSE(table.hasMountsBelow("/media/my disk"));
  EXPECT_FALSE(table.isMountPoint("/media"));
}

TEST(MountTableTest, ATableThatCannotBeReadIsEmpty) {
  const MountTable table = MountTable::read("/nowhere");
  EXPECT_TRUE(table.all().empty());
  EXPECT_EQ(table.pointOf("/a"), "");
}

TEST(MountTableTest, KnowsWhichFileSystemsChangeElsewhere) {
  for (const char* type : {"nfs4", "cifs", "fuse.sshfs", "fuse", "9p", "proc", "autofs"}) {
    EXPECT_FALSE(isLocal({"1", type, "x"})) << type;
  }
  for (const char* type : {"ext4", "btrfs", "tmpfs", "fuseblk", "vfat", "overlay"}) {
    EXPECT_TRUE(isLocal({"1", type, "x"})) << type;
  }
}

}  // namespace
}  // namespace keldane
