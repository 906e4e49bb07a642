#include "daemon/restore/users/RestoreTargets.h"

#include <gtest/gtest.h>

namespace keldane::testing {
namespace {

RestoreRequest requestFor(const std::vector<RestoreRequest::Item>& items, const std::string& target = {}) {
  RestoreRequest request;
  request.items = items;
  request.target = target;
  return request;
}

TEST(RestoreTargetsTest, LeadToOwnPlacesUnlessATargetIsGiven) {
  EXPECT_TRUE(RestoreTargets(requestFor({{"/a", 0}})).areOwnPlaces());
  EXPECT_EQ(RestoreTargets(requestFor({{"/a", 0}})).root(), "/");
  EXPECT_EQ(RestoreTargets(requestFor({{"/a", 0}}, "/t")).root(), "/t");
  EXPECT_EQ(RestoreTargets(requestFor({{"/a/b", 0}}, "/t")).nameOf(0), "b");
  RestoreRequest exact = requestFor({{"/a", 0}});
  exact.exactPath = "/t/name";
  EXPECT_EQ(RestoreTargets(exact).root(), "/t");
  EXPECT_EQ(RestoreTargets(exact).nameOf(0), "name");
  exact.exactPath = "/name";
  EXPECT_EQ(RestoreTargets(exact).root(), "/");
  EXPECT_FALSE(RestoreTargets(exact).areOwnPlaces());
}

TEST(RestoreTargetsTest, GiveLaterItemsOfOneNameOtherNames) {
  const RestoreTargets targets(requestFor({{"/a/x.txt", 0}, {"/b/x.txt", 0}, {"/c/x.txt", 0}}, "/t"));
  EXPECT_EQ(targets.nameOf(0), "x.txt");
  EXPECT_EQ(targets.nameOf(1), "x (restored).txt");
  EXPECT_EQ(targets.nameOf(2), "x (restored 2).txt");
}

TEST(RestoreTargetsTest, KnowWhatAnotherItemBringsAsWell) {
  const RestoreTargets own(requestFor({{"/a/b", 0}, {"/a", 0}, {"/a", 0}, {"/a/c", 3}, {"/ab", 0}}));
  EXPECT_TRUE(own.isCovered(0));
  EXPECT_FALSE(own.isCovered(1));
  EXPECT_TRUE(own.isCovered(2));
  EXPECT_FALSE(own.isCovered(3));
  EXPECT_FALSE(own.isCovered(4));
  const RestoreTargets elsewhere(requestFor({{"/a/b", 0}, {"/a", 0}, {"/a", 0}}, "/t"));
  EXPECT_FALSE(elsewhere.isCovered(0));
  EXPECT_TRUE(elsewhere.isCovered(2));
}

TEST(ApartPathsTest, TakesNoPathThatLiesInOrAroundAnother) {
  ApartPaths paths;
  EXPECT_TRUE(paths.add("/a/b"));
  EXPECT_TRUE(paths.add("/a/bc"));
  EXPECT_FALSE(paths.add("/a/b"));
  EXPECT_FALSE(paths.add("/a/b/c"));
  EXPECT_FALSE(paths.add("/a"));
  EXPECT_FALSE(paths.add("/"));
  EXPECT_TRUE(paths.add("/b"));
}

}  // namespace
}  // namespace keldane::testing
