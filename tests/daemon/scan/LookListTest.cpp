#include "daemon/scan/LookList.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

constexpr auto kEntry = Change::Extent::entry;
constexpr auto kFolder = Change::Extent::folder;

TEST(LookListTest, SmallThingsComeInTheirOrderAndEachOnce) {
  LookList list;
  list.add({kEntry, "/a"});
  list.add({kFolder, "/b"});
  list.add({kEntry, "/a"});
  list.addTree("/a");
  EXPECT_EQ(list.size(), 3U);
  EXPECT_EQ(list.takeSmall()->path, "/a");
  list.smallIsDone();
  EXPECT_EQ(list.takeSmall()->path, "/b");
  list.smallIsDone();
  EXPECT_EQ(list.takeSmall(), nullptr);
  EXPECT_EQ(list.takeTree(), "/a");
  EXPECT_EQ(list.takeTree(), std::nullopt);
  EXPECT_TRUE(list.empty());
}

TEST(LookListTest, WhatIsTakenWaitsUntilItIsDoneAndMayComeAgainMeanwhile) {
  LookList list;
  list.add({kEntry, "/a/b"});
  list.takeSmall();
  EXPECT_FALSE(list.empty());
  EXPECT_TRUE(list.hasBelow("/a"));
  EXPECT_EQ(list.takeSmall()->path, "/a/b") << "it was not done";
  list.add({kEntry, "/a/b"});
  list.smallIsDone();
  EXPECT_EQ(list.size(), 1U) << "it has changed meanwhile";
}

TEST(LookListTest, KnowsWhatWaitsBelowAFolder) {
  LookList list;
  list.addTree("/a b");
  list.addTree("/a/c");
  EXPECT_TRUE(list.hasBelow("/"));
  EXPECT_TRUE(list.hasBelow("/a"));
  EXPECT_TRUE(list.hasBelow("/a/c"));
  EXPECT_FALSE(list.hasBelow("/a/c/d"));
  EXPECT_FALSE(list.hasBelow("/b"));
}

}  // namespace
}  // namespace keldane
