#include "daemon/store/Store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

TEST(Store, KeepsEverythingAcrossALife) {
  const TemporaryFolder folder;
  {
    Store store(folder / "s");
    store.setRule("/a", true);
    store.setRule("/b", false);
    store.removeRule("/b");
    store.setType(".txt", 7);
    store.addPriority("/p");
    store.addPriority("/q");
    store.addPriority("/p");
    store.removePriority("/q");
    store.setValue(Store::Table::settings, "k", "setting");
    store.setValue(Store::Table::profile, "k", "profile");
  }
  Store store(folder / "s");
  EXPECT_EQ(store.rules(), (std::map<std::string, bool>{{"/a", true}}));
  EXPECT_EQ(store.types(), (std::map<std::string, std::uint32_t>{{".txt", 7}}));
  EXPECT_EQ(store.priorities().size(), 1U);
  EXPECT_EQ(store.value(Store::Table::settings, "k"), "setting");
  EXPECT_EQ(store.value(Store::Table::profile, "k"), "profile");
  EXPECT_EQ(store.value(Store::Table::profile, "none"), std::nullopt);
}

TEST(Store, IsItsOwnersAlone) {
  const TemporaryFolder folder;
  const Store store(folder / "s");
  struct stat status {};
  ASSERT_EQ(stat((folder / "s").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(Store, SaysWhenItsFileCannotBeUsed) {
  const TemporaryFolder folder;
  EXPECT_THROW(Store(folder / "none/s"), SQLite::Exception);
  EXPECT_THROW(Store(folder.write("s", std::string(4096, 'x'))), SQLite::Exception);
}

TEST(Store, MakesAFileThatOthersCouldReadItsOwnersAlone) {
  const TemporaryFolder folder;
  { const Store store(folder / "s"); }
  ASSERT_EQ(chmod((folder / "s").c_str(), 0644), 0);
  const Store store(folder / "s");
  struct stat status {};
  ASSERT_EQ(stat((folder / "s").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(Store, FollowsNoLinkToItsFile) {
  const TemporaryFolder folder;
  folder.write("precious", "");
  std::filesystem::create_symlink(folder / "precious", folder / "link");
  std::filesystem::create_symlink(folder / "none", folder / "dangling");
  std::filesystem::create_hard_link(folder / "precious", folder / "twin");
  for (const char* name : {"link", "dangling", "twin"}) {
    EXPECT_THROW(Store(folder / name), SQLite::Exception) << name;
  }
  EXPECT_EQ(testing::readWhole(folder / "precious"), "");
  EXPECT_FALSE(std::filesystem::exists(folder / "none"));
  std::filesystem::create_directory_symlink(folder.path(), folder / "here");
  EXPECT_NO_THROW(Store(folder / "here/s")) << "a folder may be reached by a link";
}

TEST(Store, UsesNoFileOfAnotherUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  const TemporaryFolder folder;
  ASSERT_EQ(chown(folder.write("s", "").c_str(), 4123456, 4123456), 0);
  EXPECT_THROW(Store(folder / "s"), SQLite::Exception);
  EXPECT_EQ(testing::readWhole(folder / "s"), "");
}

}  // namespace
}  // namespace keldane
