#include "daemon/restore/staging/Staging.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "daemon/restore/staging/RestoreStaging.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

TEST(StagingTest, IsAFolderForItsOwnerAloneAndIsRemovedWhole) {
  const TemporaryFolder folder;
  const std::string name = Staging::nameFor(12);
  EXPECT_TRUE(isRestoreStagingName(name)) << name;
  Staging staging = Staging::make(folder.path(), name);
  ASSERT_TRUE(staging);
  struct stat status {};
  ASSERT_EQ(stat((folder / name).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  folder.write(name + "/deep/file", "");
  staging.remove();
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(StagingTest, IsReachedByItsDescriptorWhateverHasItsName) {
  const TemporaryFolder folder;
  const std::string name = Staging::nameFor(1);
  Staging staging = Staging::make(folder.path(), name);
  const std::string part = staging.makePart("part");
  std::filesystem::create_directory(folder / "trap");
  std::filesystem::rename(folder / name, folder / "moved");
  std::filesystem::create_directory_symlink(folder / "trap", folder / name);
  std::ofstream(part + "/file") << "content";
  EXPECT_EQ(readWhole(folder / "moved/part/file"), "content");
  staging.remove();
  EXPECT_TRUE(std::filesystem::is_empty(folder / "trap"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / name));
}

TEST(StagingTest, OpensOnlyWhatIsOne) {
  const TemporaryFolder folder;
  const std::string name = Staging::nameFor(1);
  EXPECT_FALSE(Staging::open(folder / name));
  EXPECT_FALSE(Staging::open({}));
  std::filesystem::create_directory(folder / name);
  std::filesystem::permissions(folder / name, std::filesystem::perms(0755));
  EXPECT_FALSE(Staging::open(folder / name));
  std::filesystem::permissions(folder / name, std::filesystem::perms(0700));
  EXPECT_TRUE(Staging::open(folder / name));
  std::filesystem::rename(folder / name, folder / "other");
  EXPECT_FALSE(Staging::open(folder / "other"));
}

TEST(StagingTest, FindsTheDeepestFolderWithoutFollowingLinks) {
  const TemporaryFolder folder;
  folder.write("a/b/file", "");
  std::filesystem::create_directory_symlink("b", folder / "a/link");
  EXPECT_EQ(deepestFolder(folder / "a/b/file"), folder / "a/b");
  EXPECT_EQ(deepestFolder(folder / "a/none/deep"), folder / "a");
  EXPECT_EQ(deepestFolder(folder / "a/link/deep"), folder / "a");
  EXPECT_EQ(deepestFolder("/"), "/");
  EXPECT_EQ(mountPlace(folder / "a"), mountPlace(folder / "a/b"));
  EXPECT_NE(mountPlace("/proc"), mountPlace(folder / "a"));
}

TEST(RestoreStagingTest, KnowsItsNames) {
  EXPECT_TRUE(isRestoreStaging("/home/u/.keldane-restore-12-abC123/x/y"));
  EXPECT_TRUE(isRestoreStaging("/home/u/.keldane-restore-1-abcdef"));
  EXPECT_TRUE(isRestoreStaging(".keldane-restore-1-abcdef"));
  for (const char* other :
       {"", "/", "/home", "/home/.keldane-restore-", "/.keldane-restore-1-abcde",
        "/.keldane-restore-1-abcdefg", "/.keldane-restore--abcdef", "/.keldane-restore-x-abcdef",
        "/.keldane-restore-1-abc_ef", "/x.keldane-restore-1-abcdef", "/.keldane-restore-1abcdef"}) {
    EXPECT_FALSE(isRestoreStaging(other)) << other;
  }
}

}  // namespace
}  // namespace keldane::testing
