#include "daemon/server/Permissions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <thread>

#include "tests/daemon/server/ServerFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::kStranger;

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
    return PeerAccess(peer).sees(folder_ / name);
  }
  std::set<std::string> listed(const std::string& name) const {
    std::set<std::string> names;
    PeerAccess({kStranger, kStranger, {}})
        .list(folder_ / name, [&](const std::string& each, const struct stat&) {
          names.insert(each);
          return true;
        });
    return names;
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
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  ASSERT_EQ(chown((folder_ / "d/f").c_str(), kStranger, 0), 0);
  EXPECT_TRUE(may("d/f"));
  mode("d/f", 0044);
  EXPECT_FALSE(may("d/f")) << "the owner's own bits count, however much others may";
}

TEST_F(PermissionsTest, WhatIsMissingMayBeAskedAboutByTheOwnerOfItsFolder) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  EXPECT_FALSE(may("d/none")) << "whoever could have read it, while it was there";
  ASSERT_EQ(chown((folder_ / "d").c_str(), kStranger, kStranger), 0);
  EXPECT_TRUE(may("d/none"));
  EXPECT_TRUE(may("d/none/deeper/still"));
}

TEST_F(PermissionsTest, TheOwnerAloneSaysWhatBecomesOfAnItem) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  const PeerAccess stranger({kStranger, kStranger, {}});
  EXPECT_FALSE(stranger.mayChange(*stranger.look(folder_ / "d/f")));
  ASSERT_EQ(chown((folder_ / "d/f").c_str(), kStranger, kStranger), 0);
  EXPECT_TRUE(stranger.mayChange(*stranger.look(folder_ / "d/f")));
  EXPECT_FALSE(stranger.mayChange(*stranger.look(folder_ / "d")));
}

TEST_F(PermissionsTest, AListHasWhatMayBeAskedAbout) {
  folder_.write("d/secret", "x");
  mode("d/secret", 0600);
  std::filesystem::create_symlink("/nowhere", folder_ / "d/link");
  EXPECT_EQ(listed("d"), (std::set<std::string>{"f", "link"}));
  mode("d", 0754);
  EXPECT_EQ(listed("d"), std::set<std::string>{}) << "what is in it cannot be looked at";
  mode("d", 0711);
  EXPECT_EQ(listed("d"), std::set<std::string>{});
}

// The number for everybody without a number identifies no owner and no member.
TEST_F(PermissionsTest, NobodyOwnsWhatNobodyOwns) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(chown((folder_ / "d/f").c_str(), kNobody, kNobody), 0);
  mode("d/f", 0660);
  EXPECT_FALSE(may("d/f", {kNobody, kNobody, {kNobody}}));
  mode("d/f", 0064);
  EXPECT_TRUE(may("d/f", {kNobody, kNobody, {}})) << "what others may, nobody may";
}

TEST_F(PermissionsTest, AnAccessControlListIsANoForAnybodyButTheOwner) {
  // Version 2: owner rw, the stranger nothing, group r, mask r, others r. Mode bits cannot express this.
  struct Entry {
    std::uint16_t tag, permissions;
    std::uint32_t id;
  };
  struct {
    std::uint32_t version = 2;
    Entry entries[5] = {{1, 6, ~0U}, {2, 0, kStranger}, {4, 4, ~0U}, {0x10, 4, ~0U}, {0x20, 4, ~0U}};
  } list;
  if (setxattr((folder_ / "d/f").c_str(), "system.posix_acl_access", &list, sizeof(list), 0) != 0) {
    GTEST_SKIP() << "this file system keeps no access control lists";
  }
  EXPECT_FALSE(may("d/f"));
  EXPECT_EQ(listed("d"), std::set<std::string>{});
  EXPECT_TRUE(may("d")) << "which has none";
}

// A folder that becomes a link between two looks must not lead elsewhere.
TEST_F(PermissionsTest, APathThatIsChangedMeanwhileShowsNothingElse) {
  folder_.write("hidden/f", "a secret of some length");
  mode("hidden", 0700);
  std::filesystem::create_symlink(folder_ / "hidden", folder_ / "link");
  std::atomic<bool> done = false;
  std::thread swapper([&] {
    while (!done) {
      renameat2(AT_FDCWD, (folder_ / "d").c_str(), AT_FDCWD, (folder_ / "link").c_str(), RENAME_EXCHANGE);
    }
  });
  const PeerAccess stranger({kStranger, kStranger, {}});
  int seen = 0;
  for (int i = 0; i < 3000; ++i) {
    const std::optional<PeerAccess::Item> item = stranger.look(folder_ / "d/f");
    seen += item ? 1 : 0;
    ASSERT_TRUE(!item || (item->status && item->status->st_size == 1));
  }
  done = true;
  swapper.join();
  EXPECT_GT(seen, 0);
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
