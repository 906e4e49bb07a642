#include "daemon/restore/placing/Placer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PlacerTest : public ::testing::Test {
 protected:
  PlacerTest() {
    std::filesystem::create_directory(folder_ / "staged");
    std::filesystem::create_directory(folder_ / "target");
  }
  bool place(DirectTarget::Options options = {}) {
    options.temporaryName = ".keldane-restore-1-aaaaaa";
    const Descriptor staged(open((folder_ / "staged").c_str(), O_RDONLY | O_CLOEXEC));
    DirectTarget target(Descriptor(open((folder_ / "target").c_str(), O_PATH | O_CLOEXEC)), options);
    return placeTree(staged.get(), "/shown", target,
                     {.mayGoOn = [this] { return left_-- > 0; },
                      .begins = [](const std::string&) {},
                      .placed = [this](const TreeCount& count) { placed_ += count.files; },
                      .skipped = [this](const TreeCount& count) { skipped_ += count.files; },
                      .failed =
                          [this](const TreeCount& count, const std::string& sentence) {
                            failed_ += count.files;
                            problems_.push_back(sentence);
                          },
                      .incomplete = [this](const std::string& sentence) { problems_.push_back(sentence); }});
  }
  std::vector<std::string> contents(const std::string& name) const {
    std::vector<std::string> found;
    const std::string above = folder_ / name;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(above)) {
      found.push_back(entry.path().string().substr(above.size() + 1));
    }
    std::sort(found.begin(), found.end());
    return found;
  }
  struct stat status(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(lstat((folder_ / name).c_str(), &status), 0);
    return status;
  }
  TemporaryFolder folder_;
  std::uint64_t placed_ = 0, skipped_ = 0, failed_ = 0;
  std::vector<std::string> problems_;
  int left_ = 1000;
};

TEST_F(PlacerTest, MergesFoldersAndMovesWholeWhatIsMissing) {
  folder_.write("staged/both/new", "1");
  folder_.write("staged/missing/deep/file", "2");
  folder_.write("target/both/old", "3");
  const ino_t inode = status("staged/missing").st_ino;
  EXPECT_TRUE(place());
  EXPECT_EQ(placed_, 2U);
  EXPECT_THAT(contents("target"),
              ElementsAre("both", "both/new", "both/old", "missing", "missing/deep", "missing/deep/file"));
  EXPECT_EQ(status("target/missing").st_ino, inode);
}

TEST_F(PlacerTest, LeavesTheMetadataOfFoldersThatAreThere) {
  folder_.write("staged/both/new", "1");
  folder_.write("target/both/old", "2");
  chmod((folder_ / "staged/both").c_str(), 0711);
  chmod((folder_ / "target/both").c_str(), 0750);
  EXPECT_TRUE(place());
  EXPECT_EQ(status("target/both").st_mode & 07777, 0750U);
}

TEST_F(PlacerTest, KeepsTheTimesOfFoldersInAStaging) {
  folder_.write("staged/both/new", "1");
  folder_.write("target/both/old", "2");
  chmod((folder_ / "target/both").c_str(), 0555);
  const timespec times[] = {{1, 2}, {3, 4}};
  utimensat(AT_FDCWD, (folder_ / "target/both").c_str(), times, 0);
  EXPECT_TRUE(place({.conflict = Conflict::replace, .keepTimes = true}));
  EXPECT_EQ(status("target/both").st_mtim.tv_sec, 3);
  EXPECT_EQ(status("target/both").st_mode & 07777, 0555U);
  EXPECT_THAT(contents("target"), ElementsAre("both", "both/new", "both/old"));
}

TEST_F(PlacerTest, SaysWhatIsInTheWay) {
  folder_.write("staged/link/a", "1");
  folder_.write("staged/file/b", "1");
  folder_.write("staged/folder", "1");
  std::filesystem::create_directory_symlink(folder_ / "staged", folder_ / "target/link");
  folder_.write("target/file", "mine");
  std::filesystem::create_directory(folder_ / "target/folder");
  EXPECT_TRUE(place({.conflict = Conflict::replace}));
  std::sort(problems_.begin(), problems_.end());
  EXPECT_THAT(problems_,
              ElementsAre(HasSubstr("/shown/file is not restored: its place is taken by something"),
                          HasSubstr("/shown/folder is not restored: its place is taken by a folder"),
                          HasSubstr("/shown/link is not restored: a symbolic link")));
  EXPECT_EQ(failed_, 3U);
  EXPECT_EQ(readWhole(folder_ / "target/file"), "mine");
}

TEST_F(PlacerTest, EndsWhenItMayNotGoOn) {
  folder_.write("staged/a", "1");
  folder_.write("staged/b", "1");
  left_ = 1;
  EXPECT_FALSE(place());
  EXPECT_EQ(placed_, 1U);
  EXPECT_EQ(contents("staged").size(), 1U);
}

TEST_F(PlacerTest, CopiesWithAllMetadataToWhatIsMountedInTheTarget) {
  std::filesystem::create_directory(folder_ / "target/disk");
  if (mount("none", (folder_ / "target/disk").c_str(), "tmpfs", 0, "size=1m") != 0) {
    GTEST_SKIP() << "Nothing can be mounted here.";
  }
  folder_.write("staged/disk/folder/file", "content");
  std::filesystem::create_symlink("file", folder_ / "staged/disk/folder/link");
  chmod((folder_ / "staged/disk/folder").c_str(), 0711);
  const timespec times[] = {{1, 2}, {3, 4}};
  utimensat(AT_FDCWD, (folder_ / "staged/disk/folder").c_str(), times, 0);
  EXPECT_TRUE(place());
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_EQ(placed_, 2U);
  EXPECT_THAT(contents("target"), ElementsAre("disk", "disk/folder", "disk/folder/file", "disk/folder/link"));
  EXPECT_EQ(readWhole(folder_ / "target/disk/folder/file"), "content");
  EXPECT_EQ(status("target/disk/folder").st_mode & 07777, 0711U);
  EXPECT_EQ(status("target/disk/folder").st_mtim.tv_sec, 3);
  EXPECT_THAT(contents("staged"), ElementsAre("disk", "disk/folder"));
  umount((folder_ / "target/disk").c_str());
}

}  // namespace
}  // namespace keldane::testing
