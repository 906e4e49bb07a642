#include "clients/preferences/worker/own/LookFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

namespace fs = std::filesystem;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

class LookFolderTest : public ::testing::Test {
 protected:
  std::string copyOf(LookFolder& folder, const std::string& name, mode_t mode = 0644) const {
    std::string path = folder.placeFor(name);
    std::ofstream(path) << "content";
    chmod(path.c_str(), mode);
    return path;
  }

  const testing::TemporaryFolder place_;
  const std::string base_ = place_ / "cache/looks";
};

TEST_F(LookFolderTest, EachCopyLiesInAPrivateFolderUnderItsName) {
  LookFolder folder(base_);
  EXPECT_FALSE(fs::exists(base_));
  const std::string one = folder.placeFor("letter.txt"), two = folder.placeFor("letter.txt");
  EXPECT_NE(one, two);
  EXPECT_EQ(fs::path(one).filename(), "letter.txt");
  EXPECT_FALSE(fs::exists(one));
  for (fs::path above = fs::path(one).parent_path(); above != place_ / "cache"; above = above.parent_path()) {
    EXPECT_EQ(modeOf(above), 0700U) << above;
  }
}

TEST_F(LookFolderTest, ACopyCannotBeChangedOrExecuted) {
  LookFolder folder(base_);
  const std::string path = copyOf(folder, "program", 06755);
  EXPECT_TRUE(LookFolder::seal(path));
  EXPECT_EQ(modeOf(path), 0400U);
}

TEST_F(LookFolderTest, OnlyAPlainFileIsACopy) {
  LookFolder folder(base_);
  const std::string other = copyOf(folder, "other"), link = folder.placeFor("link");
  fs::create_symlink(other, link);
  EXPECT_FALSE(LookFolder::seal(link));
  EXPECT_EQ(modeOf(other), 0644U);
  EXPECT_FALSE(LookFolder::seal(fs::path(link).parent_path()));
  EXPECT_FALSE(LookFolder::seal(link + "x"));
}

TEST_F(LookFolderTest, CopiesGoWhenTheyArePutAwayAndWithTheirFolder) {
  std::string path;
  {
    LookFolder folder(base_);
    path = copyOf(folder, "one");
    folder.clear();
    EXPECT_FALSE(fs::exists(path));
    path = copyOf(folder, "two");
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(fs::is_empty(base_));
}

TEST_F(LookFolderTest, WhatAProgramLeftIsSweptAndWhatOneHasStays) {
  LookFolder living(base_);
  const std::string path = copyOf(living, "mine");
  const fs::path left = fs::path(base_) / "ABCDEF" / "GHIJKL";
  fs::create_directories(left);
  std::ofstream(left / "secret") << "left by a program that was killed";
  chmod((left / "secret").c_str(), 0400);
  LookFolder(base_).sweep();
  EXPECT_FALSE(fs::exists(left.parent_path()));
  EXPECT_TRUE(fs::exists(path));
}

TEST_F(LookFolderTest, APlaceThatCannotBeMadeIsTold) {
  place_.write("file", "");
  LookFolder folder(place_ / "file/looks");
  EXPECT_THROW(folder.placeFor("x"), std::runtime_error);
}

}  // namespace
}  // namespace keldane
