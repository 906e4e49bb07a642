#include "daemon/restore/staging/StagedFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

using ::testing::UnorderedElementsAre;

class StagedFolderTest : public ::testing::Test {
 protected:
  struct stat status(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(lstat((folder_ / name).c_str(), &status), 0);
    return status;
  }
  TemporaryFolder folder_;
  const Descriptor root_{open(folder_.path().c_str(), O_RDONLY | O_CLOEXEC)};
};

TEST_F(StagedFolderTest, CanBeChangedMeanwhileAndLooksUntouchedAfterwards) {
  folder_.write("shut/file", "");
  const timespec times[] = {{1, 2}, {3, 4}};
  utimensat(AT_FDCWD, (folder_ / "shut").c_str(), times, 0);
  chmod((folder_ / "shut").c_str(), 0);
  {
    const StagedFolder shut(root_.get(), "shut");
    ASSERT_TRUE(shut);
    EXPECT_THAT(namesIn(shut.get()), UnorderedElementsAre("file"));
    EXPECT_EQ(unlinkat(shut.get(), "file", 0), 0);
    EXPECT_EQ(status("shut").st_mode & 07777, 0700U);
  }
  EXPECT_EQ(status("shut").st_mode & 07777, 0U);
  EXPECT_EQ(status("shut").st_mtim.tv_sec, 3);
}

TEST_F(StagedFolderTest, IsNotOpenedThroughALink) {
  std::filesystem::create_directory(folder_ / "real");
  std::filesystem::create_directory_symlink("real", folder_ / "link");
  EXPECT_FALSE(StagedFolder(root_.get(), "link"));
}

TEST_F(StagedFolderTest, RemovesATreeButNotWhatLinksLeadTo) {
  folder_.write("tree/a/b/file", "");
  folder_.write("kept/file", "");
  std::filesystem::create_directory_symlink(folder_ / "kept", folder_ / "tree/a/link");
  chmod((folder_ / "tree/a/b").c_str(), 0500);
  chmod((folder_ / "tree/a").c_str(), 0);
  removeTree(root_.get(), "tree");
  removeTree(root_.get(), "none");
  EXPECT_THAT(namesIn(root_.get()), UnorderedElementsAre("kept"));
  EXPECT_TRUE(std::filesystem::exists(folder_ / "kept/file"));
}

TEST_F(StagedFolderTest, CountsFilesAndBytes) {
  folder_.write("tree/a", "12345");
  folder_.write("tree/b/c", "123");
  std::filesystem::create_symlink("a", folder_ / "tree/link");
  std::filesystem::create_directory(folder_ / "tree/empty");
  EXPECT_EQ(countTree(root_.get(), "tree").files, 3U);
  EXPECT_EQ(countTree(root_.get(), "tree").bytes, 8U);
  EXPECT_EQ(countTree(root_.get(), "none").files, 0U);
}

TEST_F(StagedFolderTest, DropsWhatDoesNotStayAndTheFoldersThatAreEmptyForIt) {
  folder_.write("tree/stays", "");
  folder_.write("tree/goes", "");
  folder_.write("tree/below/goes", "");
  folder_.write("tree/both/goes", "");
  folder_.write("tree/both/stays", "");
  std::filesystem::create_directory(folder_ / "tree/empty");
  std::vector<std::string> asked;
  {
    const StagedFolder tree(root_.get(), "tree");
    filterTree(tree.get(), "/x",
               [&](int, const std::string& name, const std::string& path, const struct stat&) {
                 asked.push_back(path);
                 return name == "stays";
               });
    EXPECT_THAT(namesIn(tree.get()), UnorderedElementsAre("stays", "both", "empty"));
  }
  EXPECT_THAT(asked,
              UnorderedElementsAre("/x/stays", "/x/goes", "/x/below/goes", "/x/both/goes", "/x/both/stays"));
}

}  // namespace
}  // namespace keldane::testing
