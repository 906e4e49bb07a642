#include "daemon/engine/DurableFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

std::filesystem::perms modeOf(const std::string& path) { return std::filesystem::status(path).permissions(); }

class DurableFileTest : public ::testing::Test {
 protected:
  std::size_t filesInFolder() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }
  TemporaryFolder folder_;
};

TEST_F(DurableFileTest, ReplacesAFileWholeAndKeepsItPrivate) {
  const std::string path = folder_.write("file", "old");
  ::chmod(path.c_str(), 0644);
  writeDurably(path, "new");
  EXPECT_EQ(readPrivateFile(path), "new");
  EXPECT_EQ(modeOf(path), std::filesystem::perms(0600));
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(DurableFileTest, LeavesNothingBehindWhenItCannotWrite) {
  std::filesystem::create_directory(folder_ / "file");
  folder_.write("file/inside", "x");
  EXPECT_THROW(writeDurably(folder_ / "file", "new"), std::runtime_error);
  EXPECT_EQ(filesInFolder(), 1U);
  EXPECT_THROW(writeDurably(folder_ / "no/file", "new"), std::runtime_error);
}

TEST_F(DurableFileTest, TellsAMissingFileFromOneThatCannotBeRead) {
  EXPECT_EQ(readPrivateFile(folder_ / "none"), std::nullopt);
  EXPECT_THROW(readPrivateFile(folder_.path().string()), std::runtime_error);
}

TEST_F(DurableFileTest, MakesFoldersPrivate) {
  makePrivateFolder(folder_ / "a/b");
  EXPECT_EQ(modeOf(folder_ / "a/b"), std::filesystem::perms(0700));
  ::chmod((folder_ / "a/b").c_str(), 0755);
  makePrivateFolder(folder_ / "a/b");
  EXPECT_EQ(modeOf(folder_ / "a/b"), std::filesystem::perms(0755)) << "one that is there stays as it is";
  folder_.write("file", "x");
  EXPECT_THROW(makePrivateFolder(folder_ / "file"), std::runtime_error);
}

TEST_F(DurableFileTest, RemovesAScratchFileInTheEnd) {
  const std::string work = folder_ / "work";
  {
    const ScratchFile first(work, "list", "one");
    const ScratchFile second(work, "list", "two");
    EXPECT_NE(first.path(), second.path());
    EXPECT_EQ(readPrivateFile(first.path()), "one");
    EXPECT_EQ(modeOf(first.path()), std::filesystem::perms(0600));
    ScratchFile::sweep(work);
    EXPECT_EQ(readPrivateFile(second.path()), "two") << "its process lives";
  }
  EXPECT_TRUE(std::filesystem::is_empty(work));
}

}  // namespace
}  // namespace keldane::testing
