#include "daemon/Permissions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

constexpr uid_t kStranger = 4123456;

class PermissionsTest : public ::testing::Test {
 protected:
  PermissionsTest() {
    chmod(folder_.path().c_str(), 0755);
    folder_.write("d/f", "x");
    mode("d", 0755);
    mode("d/f", 0644);
  }
  void mode(const std::string& name, mode_t mode) { ASSERT_EQ(chmod((folder_ / name).c_str(), mode), 0); }
  bool may(const std::string& name, const Peer& peer = {kStranger, kStranger, {}}) const {
    return mayRead(peer, folder_ / name);
  }
  testing::TemporaryFolder folder_;
};

TEST_F(PermissionsTest, AStrangerReadsWhatOthersMay) {
  EXPECT_TRUE(may("d/f"));
  EXPECT_TRUE(may("d"));
  mode("d/f", 0640);
  EXPECT_FALSE(may("d/f"));
}

TEST_F(PermissionsTest, EveryFolderOnTheWayMustBeSearchable) {
  mode("d", 0754);
  EXPECT_FALSE(may("d/f"));
  mode("d", 0711);
  EXPECT_TRUE(may("d/f"));
  EXPECT_FALSE(may("d")) << "but not read";
}

TEST_F(PermissionsTest, GroupsAndOwnersHaveBitsOfTheirOwn) {
  struct stat status {};
  ASSERT_EQ(stat((folder_ / "d/f").c_str(), &status), 0);
  mode("d/f", 0640);
  EXPECT_TRUE(may("d/f", {kStranger, status.st_gid, {}}));
  EXPECT_TRUE(may("d/f", {kStranger, kStranger, {1, status.st_gid}}));
  EXPECT_TRUE(may("d/f", {status.st_uid, kStranger, {}}));
  mode("d/f", 0044);
  EXPECT_FALSE(may("d/f", {status.st_uid, kStranger, {}}))
      << "the owner's own bits count, however much others may";
}

TEST_F(PermissionsTest, WhatIsMissingMayBeAskedAboutByWhoReadsTheFolder) {
  EXPECT_TRUE(may("d/none"));
  EXPECT_TRUE(may("d/none/deeper/still"));
  mode("d", 0711);
  EXPECT_FALSE(may("d/none"));
}

TEST_F(PermissionsTest, ALinkOnTheWayIsANo) {
  std::filesystem::create_directory_symlink(folder_ / "d", folder_ / "link");
  EXPECT_FALSE(may("link/f"));
  EXPECT_TRUE(may("link")) << "the link itself is there to be read";
}

TEST_F(PermissionsTest, RootAndTheDaemonsUserMayAll) {
  EXPECT_TRUE(isPrivileged({0, 0, {}}));
  EXPECT_TRUE(isPrivileged({geteuid(), 5, {}}));
  EXPECT_FALSE(isPrivileged({kStranger, 0, {}}));
}

TEST(Peers, HaveTheGroupsOfTheUserDatabase) {
  const Peer root = peerOf(0, 0);
  EXPECT_FALSE(root.groups.empty());
  EXPECT_TRUE(peerOf(kStranger, 5).groups.empty());
}

}  // namespace
}  // namespace keldane
