#include "daemon/server/socket/FolderSafety.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

class FolderSafetyTest : public ::testing::Test {
 protected:
  FolderSafetyTest() { std::filesystem::create_directories(folder_ / "above/here"); }
  void mode(const std::string& name, mode_t mode) { ASSERT_EQ(chmod((folder_ / name).c_str(), mode), 0); }
  std::string answer(const std::string& name = "above/here") const {
    return whoElseCanWriteTo(folder_ / name).value_or("nobody");
  }
  testing::TemporaryFolder folder_;
};

TEST_F(FolderSafetyTest, AFolderOfOnesOwnIsSafe) {
  EXPECT_EQ(answer(), "nobody");
  mode("above/here", 0755);
  EXPECT_EQ(answer(), "nobody");
}

TEST_F(FolderSafetyTest, AFolderWhereAGroupOrOthersWriteIsNot) {
  for (const mode_t open : {0770U, 0707U, 01777U}) {
    mode("above/here", open);
    EXPECT_EQ(answer(), "Others can write to the folder " + (folder_ / "above/here") + ".");
  }
}

TEST_F(FolderSafetyTest, NorIsOneThatOthersCouldMoveAway) {
  mode("above", 0777);
  EXPECT_EQ(answer(), "Others can write to the folder " + (folder_ / "above") + ".");
  mode("above", 01777);
  EXPECT_EQ(answer(), "nobody") << "there everybody moves his own";
}

TEST_F(FolderSafetyTest, NorIsOneOfAnotherUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  ASSERT_EQ(chown((folder_ / "above").c_str(), 4123456, 4123456), 0);
  EXPECT_EQ(answer(), "The folder " + (folder_ / "above") + " belongs to another user.");
}

TEST_F(FolderSafetyTest, ALinkIsFollowedFirst) {
  std::filesystem::create_directory_symlink(folder_ / "above/here", folder_ / "link");
  EXPECT_EQ(answer("link"), "nobody");
  mode("above/here", 0777);
  EXPECT_EQ(answer("link"), "Others can write to the folder " + (folder_ / "above/here") + ".");
}

TEST_F(FolderSafetyTest, WhatIsNotThereIsNotSafe) {
  EXPECT_EQ(answer("none"), "The folder " + (folder_ / "none") + " cannot be looked at.");
}

}  // namespace
}  // namespace keldane
