#include "daemon/backup/batch/Targets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using ::testing::UnorderedElementsAre;

class TargetsTest : public ::testing::Test {
 protected:
  TargetsTest() {
    for (const char* name : {"d/a.txt", "d/b.tmp", "d/sub/c.txt", "d/sub/deep/e.txt", "d/other/f.txt"}) {
      folder_.write(name, "x");
    }
    rules_.setRule(folder_ / "d", true);
  }
  std::vector<std::string> targets() {
    return targetsIn(rules_.places(), rules_,
                     [this](const std::string& path) { return rules_.decide(path, false).selected; });
  }
  testing::TemporaryFolder folder_;
  Store store_{folder_ / "store"};
  RuleBook rules_{store_, "/", {folder_ / "d/barred"}};
};

TEST_F(TargetsTest, AFolderThatIsWantedWholeIsOneTarget) {
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d"));
}

TEST_F(TargetsTest, WhatIsExcludedLeavesItsNeighboursAsTargets) {
  rules_.setRule(folder_ / "d/sub/deep", false);
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d/a.txt", folder_ / "d/b.tmp",
                                              folder_ / "d/sub/c.txt", folder_ / "d/other"));
}

TEST_F(TargetsTest, AnExcludedTypeIsLeftOutWhereverItIs) {
  rules_.setType(".tmp", kTypeExclude);
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d/a.txt", folder_ / "d/sub", folder_ / "d/other"));
}

TEST_F(TargetsTest, WhatIsBarredIsLeftOut) {
  folder_.write("d/barred/key", "secret");
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d/a.txt", folder_ / "d/b.tmp", folder_ / "d/sub",
                                              folder_ / "d/other"));
}

TEST_F(TargetsTest, AnUnfinishedRestoreIsLeftOut) {
  folder_.write("d/other/.keldane-restore-1-abc/x", "half");
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d/a.txt", folder_ / "d/b.tmp", folder_ / "d/sub",
                                              folder_ / "d/other/f.txt"));
}

TEST_F(TargetsTest, AnEmptyFolderIsATarget) {
  std::filesystem::create_directories(folder_ / "d/empty");
  rules_.setRule(folder_ / "d/a.txt", false);
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d/b.tmp", folder_ / "d/sub", folder_ / "d/other",
                                              folder_ / "d/empty"));
}

TEST_F(TargetsTest, LinksAreNotFollowed) {
  std::filesystem::create_directory_symlink(folder_ / "d/sub", folder_ / "d/link");
  rules_.setRule(folder_ / "d/sub", false);
  EXPECT_THAT(targets(), UnorderedElementsAre(folder_ / "d/a.txt", folder_ / "d/b.tmp", folder_ / "d/other",
                                              folder_ / "d/link"));
}

}  // namespace
}  // namespace keldane
