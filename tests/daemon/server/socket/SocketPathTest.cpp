#include "daemon/server/socket/SocketPath.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Common/calls/OwnerProtocol.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/RawPeer.h"

namespace keldane {
namespace {

std::string refusalOf(const std::string& path, bool allowSharedFolder = false) {
  SocketPath claimed(path, allowSharedFolder);
  std::string error;
  const bool had = claimed.claim(&error);
  EXPECT_EQ(had, error.empty());
  return error;
}

TEST(SocketPath, IsHadOnceAtATime) {
  const testing::TemporaryFolder folder;
  const std::string path = folder / "s";
  {
    SocketPath first(path, false);
    std::string error;
    ASSERT_TRUE(first.claim(&error)) << error;
    EXPECT_EQ(refusalOf(path), "Another keldaned already serves " + path + ".");
    EXPECT_EQ(refusalOf(ownerSocketPath(path)), "") << "the second socket has a lock of its own";
  }
  EXPECT_EQ(refusalOf(path), "");
}

TEST(SocketPath, MakesItsFolderForEverybodyToReach) {
  const testing::TemporaryFolder folder;
  EXPECT_EQ(refusalOf(folder / "new/s"), "");
  struct stat status {};
  ASSERT_EQ(stat((folder / "new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST(SocketPath, IsRefusedWhenItIsTooLongForAnAddress) {
  const testing::TemporaryFolder folder;
  const std::string longest = folder / std::string(103 - folder.path().string().size() - 1, 's');
  ASSERT_EQ(longest.size(), 103U);
  EXPECT_EQ(refusalOf(longest), "");
  EXPECT_EQ(refusalOf(ownerSocketPath(longest)),
            "The socket path " + longest + ".owner is empty or longer than 103 bytes.");
  EXPECT_EQ(refusalOf(""), "The socket path  is empty or longer than 103 bytes.");
}

TEST(SocketPath, IsRefusedWhereSomethingElseIs) {
  const testing::TemporaryFolder folder;
  const std::string file = folder.write("file", "precious");
  EXPECT_EQ(refusalOf(file), file + " is in the way: it is no socket.");
  EXPECT_EQ(testing::readWhole(file), "precious");
  const testing::RawPeer served;
  EXPECT_EQ(refusalOf(served.path()), "Another program already serves " + served.path() + ".");
}

TEST(SocketPath, IsRefusedWhereOthersCanWrite) {
  const testing::TemporaryFolder folder;
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  EXPECT_NE(refusalOf(folder / "s").find("--allow-shared-folder"), std::string::npos);
  EXPECT_EQ(refusalOf(folder / "s", true), "");
}

TEST(SocketPath, FollowsNoLinkToItsLock) {
  const testing::TemporaryFolder folder;
  std::filesystem::create_symlink(folder.write("target", ""), folder / "s.lock");
  EXPECT_NE(refusalOf(folder / "s").find("cannot be made"), std::string::npos);
}

}  // namespace
}  // namespace keldane
