#include "daemon/engine/ExternalDisk.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

/// A simulated system: devices, their UUIDs, and the mounts.
class ExternalDiskTest : public ::testing::Test {
 protected:
  ExternalDiskTest() {
    for (const auto& [name, uuid] : {std::pair("sda1", "AAAA-1111"), std::pair("sdb1", "BBBB-2222")}) {
      folder_.write(std::string("dev/") + name, "");
      std::filesystem::create_directories(folder_ / "by-uuid");
      std::filesystem::create_symlink(folder_ / (std::string("dev/") + name),
                                      folder_ / (std::string("by-uuid/") + uuid));
    }
    std::filesystem::create_directories(folder_ / "mnt/my disk/backup");
    mount("/", "sda1");
  }
  void mount(const std::string& point, const std::string& device) {
    table_ += "36 35 98:0 / " + point + " rw,noatime master:1 shared:2 - ext4 " +
              (folder_ / ("dev/" + device)) + " rw\n";
    folder_.write("mountinfo", table_);
  }
  DiskTables tables() const { return {folder_ / "mountinfo", folder_ / "by-uuid"}; }

  TemporaryFolder folder_;
  std::string table_;
};

TEST_F(ExternalDiskTest, KnowsTheDiskOfAPathThatNeedNotExist) {
  const std::string point = folder_ / "mnt/my\\040disk";
  const std::string path = folder_ / "mnt/my disk/backup";
  EXPECT_EQ(fileSystemUuidOf(path, tables()), "AAAA-1111");
  EXPECT_FALSE(isOnFileSystem(path, "BBBB-2222", tables())) << "the empty mount point lies on another disk";
  mount(point, "sdb1");
  EXPECT_EQ(fileSystemUuidOf(path, tables()), "BBBB-2222");
  EXPECT_EQ(fileSystemUuidOf(path + "/new/folder", tables()), "BBBB-2222");
  EXPECT_TRUE(isOnFileSystem(path, "BBBB-2222", tables()));
  EXPECT_EQ(fileSystemUuidOf(folder_ / "mnt/my disk too", tables()), "AAAA-1111");
}

TEST_F(ExternalDiskTest, GoesByWhatWasMountedLast) {
  mount(folder_ / "mnt", "sdb1");
  mount(folder_ / "mnt", "sda1");
  EXPECT_EQ(fileSystemUuidOf(folder_ / "mnt", tables()), "AAAA-1111");
}

TEST_F(ExternalDiskTest, FollowsLinksToTheDisk) {
  mount(folder_ / "mnt", "sdb1");
  std::filesystem::create_symlink(folder_ / "mnt", folder_ / "link");
  EXPECT_EQ(fileSystemUuidOf(folder_ / "link/backup", tables()), "BBBB-2222");
}

TEST_F(ExternalDiskTest, KnowsNoUuidOfOtherFileSystems) {
  table_ += "36 35 98:0 / " + (folder_ / "mnt") + " rw - tmpfs tmpfs rw\n";
  folder_.write("mountinfo", table_ + "nonsense\n");
  EXPECT_EQ(fileSystemUuidOf(folder_ / "mnt/x", tables()), "");
  EXPECT_FALSE(isOnFileSystem(folder_ / "mnt/x", "", tables()));
  EXPECT_EQ(fileSystemUuidOf("/", {"/nowhere", "/nowhere"}), "");
  fileSystemUuidOf("/");
}

}  // namespace
}  // namespace keldane::testing
