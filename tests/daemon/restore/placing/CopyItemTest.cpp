#include "daemon/restore/placing/CopyItem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "platform/files/Descriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

constexpr char kTemporary[] = ".keldane-restore-1-aaaaaa";

class CopyItemTest : public ::testing::Test {
 protected:
  CopyItemTest() {
    std::filesystem::create_directory(folder_ / "to");
    to_ = Descriptor(open((folder_ / "to").c_str(), O_PATH | O_CLOEXEC));
  }
  PlaceResult copy(const std::string& path, Conflict conflict = Conflict::keepBoth, CopyAs as = CopyAs::owner,
                   bool again = false, const CopyPermit& permit = {}) {
    struct stat status {};
    lstat(path.c_str(), &status);
    const Descriptor from(
        open(path.c_str(), (S_ISREG(status.st_mode) ? O_RDONLY : O_PATH) | O_NOFOLLOW | O_CLOEXEC));
    return copyItem(from.get(), to_.get(), kTemporary, "copy", conflict, as, again, permit);
  }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder_ / "to")) {
      found.push_back(entry.path().filename());
    }
    std::sort(found.begin(), found.end());
    return found;
  }
  struct stat copied() const {
    struct stat status {};
    EXPECT_EQ(lstat((folder_ / "to/copy").c_str(), &status), 0);
    return status;
  }
  TemporaryFolder folder_;
  Descriptor to_;
};

TEST_F(CopyItemTest, CopiesAFileWithItsMetadata) {
  const std::string path = folder_.write("a", "content");
  ASSERT_EQ(setxattr(path.c_str(), "user.note", "kept", 4, 0), 0);
  ASSERT_EQ(chmod(path.c_str(), 04751), 0);
  const timespec times[] = {{1, 2}, {3, 4}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  EXPECT_EQ(copy(path).error, 0);
  EXPECT_EQ(readWhole(folder_ / "to/copy"), "content");
  EXPECT_EQ(copied().st_mode & 07777, 04751U);
  EXPECT_EQ(copied().st_mtim.tv_sec, 3);
  EXPECT_EQ(copied().st_mtim.tv_nsec, 4);
  char value[8] = {};
  EXPECT_EQ(getxattr((folder_ / "to/copy").c_str(), "user.note", value, sizeof(value)), 4);
  EXPECT_THAT(names(), ::testing::ElementsAre("copy"));
}

TEST_F(CopyItemTest, GivesAStrangerNoSpecialBits) {
  const std::string path = folder_.write("a", "content");
  ASSERT_EQ(chmod(path.c_str(), 07755), 0);
  EXPECT_EQ(copy(path, Conflict::keepBoth, CopyAs::stranger).error, 0);
  EXPECT_EQ(copied().st_mode & 07777, 0755U);
}

TEST_F(CopyItemTest, KeepsHoles) {
  const std::string path = folder_.write("a", "begin");
  ASSERT_EQ(truncate(path.c_str(), 4 << 20), 0);
  EXPECT_EQ(copy(path).error, 0);
  EXPECT_EQ(readWhole(folder_ / "to/copy"), readWhole(path));
  EXPECT_LT(copied().st_blocks * 512, 1 << 20);
}

TEST_F(CopyItemTest, CopiesLinksAsLinks) {
  std::filesystem::create_symlink("nowhere", folder_ / "link");
  EXPECT_EQ(copy(folder_ / "link").error, 0);
  EXPECT_EQ(std::filesystem::read_symlink(folder_ / "to/copy"), "nowhere");
}

TEST_F(CopyItemTest, LeavesNothingWhenItIsEnded) {
  const std::string path = folder_.write("a", "content");
  const CopyPermit never{[](const void*) { return false; }, nullptr};
  EXPECT_EQ(copy(path, Conflict::keepBoth, CopyAs::owner, false, never).error, ECANCELED);
  EXPECT_THAT(names(), ::testing::IsEmpty());
}

TEST_F(CopyItemTest, LeavesNothingWhenItIsSkipped) {
  folder_.write("to/copy", "mine");
  EXPECT_EQ(copy(folder_.write("a", "content"), Conflict::skip).kind, PlaceResult::skipped);
  EXPECT_THAT(names(), ::testing::ElementsAre("copy"));
  EXPECT_EQ(readWhole(folder_ / "to/copy"), "mine");
}

TEST_F(CopyItemTest, PlacesNothingTwice) {
  const std::string path = folder_.write("a", "content");
  copy(path);
  EXPECT_EQ(copy(path, Conflict::keepBoth, CopyAs::owner, true).kind, PlaceResult::placed);
  EXPECT_THAT(names(), ::testing::ElementsAre("copy"));
  EXPECT_EQ(copy(path).kind, PlaceResult::placed);
  EXPECT_THAT(names(), ::testing::ElementsAre("copy", "copy (restored)"));
}

TEST_F(CopyItemTest, MakesNoSpecialFilesForAStranger) {
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(copy(folder_ / "pipe", Conflict::keepBoth, CopyAs::stranger).error, EPERM);
  EXPECT_EQ(copy(folder_ / "pipe").error, 0);
  EXPECT_TRUE(S_ISFIFO(copied().st_mode));
}

}  // namespace
}  // namespace keldane::testing
