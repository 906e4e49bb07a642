#include "daemon/rules/RuleBook.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

class RuleBookTest : public ::testing::Test {
 protected:
  bool selected(const std::string& path) const { return rules_.decide(path, false).selected; }
  TemporaryFolder folder_;
  Store store_{folder_ / "store.sqlite"};
  RuleBook rules_{store_, "/home", {"/home/cache"}};
};

TEST_F(RuleBookTest, NothingIsSelectedUntilARuleSaysSo) {
  const Decision decision = rules_.decide("/home/a", false);
  EXPECT_FALSE(decision.selected);
  EXPECT_FALSE(decision.barred);
  EXPECT_FALSE(decision.ownRule);
}

TEST_F(RuleBookTest, TheNearestFolderDecides) {
  rules_.setRule("/home/a", true);
  rules_.setRule("/home/a/b", false);
  rules_.setRule("/home/a/b/c", true);
  EXPECT_TRUE(selected("/home/a/x"));
  EXPECT_FALSE(selected("/home/a/b/x"));
  EXPECT_TRUE(selected("/home/a/b/c/x/y"));
  EXPECT_FALSE(selected("/home/ab")) << "a name that only begins alike";
  rules_.removeRule("/home/a/b");
  EXPECT_TRUE(selected("/home/a/b/x"));
}

TEST_F(RuleBookTest, APathsOwnRuleComesBeforeItsTypes) {
  rules_.setRule("/home/a", true);
  rules_.setType(".tmp", kTypeExclude);
  EXPECT_FALSE(selected("/home/a/x.tmp"));
  rules_.setRule("/home/a/x.tmp", true);
  EXPECT_TRUE(selected("/home/a/x.tmp"));
  rules_.setType(".doc", kTypeBackup);
  EXPECT_TRUE(selected("/home/elsewhere/x.doc"));
  rules_.setRule("/home/elsewhere/x.doc", false);
  EXPECT_FALSE(selected("/home/elsewhere/x.doc"));
  EXPECT_FALSE(rules_.decide("/home/elsewhere/folder.doc", true).selected) << "types are for files";
}

TEST_F(RuleBookTest, WhatWasFoundOnTheDiskIsKnownAfterARestart) {
  rules_.setRule("/home/a", true);
  rules_.setMark("/home/a/cache", Mark::cacheTag);
  rules_.setMark("/home/a/tree", Mark::otherFileSystem);
  rules_.setMark("/home/a/tree/deep", Mark::attribute);
  rules_.setMark("/home/a/tree/deep", Mark::none);
  rules_.setMark("/home/a/gone", Mark::cacheTag);
  rules_.setMark("/home/a/gone/deep", Mark::cacheTag);
  rules_.dropMarks("/home/a/gone");
  RuleBook again(store_, "/home", {});
  EXPECT_EQ(again.decide("/home/a/cache/x", false).ignoredAt, "/home/a/cache");
  EXPECT_TRUE(again.isMarked("/home/a/tree", Mark::otherFileSystem));
  EXPECT_FALSE(again.isMarked("/home/a/tree/deep", Mark::attribute));
  EXPECT_TRUE(again.decide("/home/a/gone/deep/x", false).selected);
  EXPECT_EQ(store_.marks().size(), 2U);
}

TEST_F(RuleBookTest, WhatWasFoundBelowAMarkOutlivesThatMark) {
  rules_.setRule("/home/a", true);
  rules_.setMark("/home/a/b", Mark::cacheTag);
  rules_.setMark("/home/a/b/c", Mark::cacheTag);
  rules_.setMark("/home/a/b", Mark::none);
  RuleBook again(store_, "/home", {});
  EXPECT_TRUE(again.decide("/home/a/b/x", false).selected);
  EXPECT_FALSE(again.decide("/home/a/b/c/x", false).selected);
}

TEST_F(RuleBookTest, ATypesRuleCanBeTakenAwayForGood) {
  rules_.setRule("/home/a", true);
  rules_.setType(".tmp", kTypeExclude);
  rules_.setType(".tmp", kTypeNone);
  EXPECT_TRUE(selected("/home/a/x.tmp"));
  EXPECT_EQ(rules_.type(".tmp"), kTypeNone);
  EXPECT_TRUE(store_.types().empty());
}

TEST_F(RuleBookTest, ThePolicyCannotBeOverruled) {
  rules_.setRule("/home/cache/x", true);
  rules_.setRule("/etc/x", true);
  for (const char* path : {"/home/cache", "/home/cache/x", "/etc/x", "/", "/homes"}) {
    EXPECT_TRUE(rules_.decide(path, false).barred) << path;
    EXPECT_FALSE(selected(path)) << path;
  }
}

TEST_F(RuleBookTest, ExplainsRuleByRuleTheDecidingOneFirst) {
  using Kind = Reason::Kind;
  const auto explained = [&](const std::string& path, bool isFolder = false) {
    std::string text;
    for (const Reason& reason : rules_.explain(path, isFolder)) {
      text +=
          std::to_string(static_cast<int>(reason.kind)) + (reason.includes ? "+" : "-") + reason.rule + " ";
    }
    return text;
  };
  const auto expected = [](Kind kind, const std::string& rest) {
    return std::to_string(static_cast<int>(kind)) + rest + " ";
  };
  EXPECT_EQ(explained("/home/a"), expected(Kind::none, "-"));
  EXPECT_EQ(explained("/etc/x"), expected(Kind::root, "-/home"));
  rules_.setRule("/home/cache/x", true);
  EXPECT_EQ(explained("/home/cache/x"),
            expected(Kind::policy, "-/home/cache") + expected(Kind::own, "+/home/cache/x"));
  rules_.barRepository("/home/repository");
  EXPECT_EQ(explained("/home/repository/data"), expected(Kind::policy, "-/home/repository"));
  EXPECT_EQ(explained("/home/d/.keldane-restore-1/x/y"),
            expected(Kind::policy, "-/home/d/.keldane-restore-1"));
  rules_.setRule("/home", true);
  rules_.setRule("/home/a", false);
  rules_.setRule("/home/a/x.tmp", true);
  rules_.setType(".tmp", kTypeExclude);
  const std::string folders = expected(Kind::folder, "-/home/a") + expected(Kind::folder, "+/home");
  EXPECT_EQ(explained("/home/a/x.tmp"),
            expected(Kind::own, "+/home/a/x.tmp") + expected(Kind::type, "-.tmp") + folders);
  EXPECT_EQ(explained("/home/a/b/y.tmp"), expected(Kind::type, "-.tmp") + folders);
  EXPECT_EQ(explained("/home/a/b/y.tmp", true), folders) << "types are for files";
}

TEST_F(RuleBookTest, AnExplanationAgreesWithTheDecision) {
  rules_.setRule("/home", true);
  rules_.setRule("/home/a", false);
  rules_.setRule("/home/a/b", true);
  rules_.setType(".tmp", kTypeExclude);
  rules_.setType(".doc", kTypeBackup);
  for (const char* path : {"/", "/home", "/home/x", "/home/a", "/home/a/x.doc", "/home/a/b/x.tmp",
                           "/home/cache", "/home/cache/x.doc", "/etc/x.doc", "/home/.keldane-restore-2"}) {
    for (const bool isFolder : {false, true}) {
      const Decision decision = rules_.decide(path, isFolder);
      const Reason first = rules_.explain(path, isFolder).at(0);
      EXPECT_EQ(first.includes, decision.selected) << path;
      EXPECT_EQ(first.kind == Reason::Kind::root || first.kind == Reason::Kind::policy, decision.barred)
          << path;
    }
  }
}

TEST_F(RuleBookTest, KnowsOfRulesBelow) {
  rules_.setRule("/home/a/b/c", true);
  EXPECT_TRUE(rules_.decide("/home/a", true).rulesBelow);
  EXPECT_TRUE(rules_.decide("/home/a/b", true).rulesBelow);
  EXPECT_FALSE(rules_.decide("/home/a/b/c", true).rulesBelow);
  EXPECT_FALSE(rules_.decide("/home/a/b2", true).rulesBelow);
}

TEST_F(RuleBookTest, ListsWhereToLook) {
  rules_.setRule("/home/a", true);
  rules_.setRule("/home/a/b", true);
  rules_.setRule("/home/c", false);
  EXPECT_EQ(rules_.places(), std::vector<std::string>{"/home/a"});
  EXPECT_EQ(rules_.excludedAt("/home"), std::vector<std::string>{"/home/c"});
  rules_.setType(".txt", kTypeBackup);
  EXPECT_EQ(rules_.places(), std::vector<std::string>{"/home"}) << "a type may be anywhere";
}

TEST_F(RuleBookTest, OutlivesTheProcess) {
  rules_.setRule("/home/a", true);
  rules_.setType(".txt", kTypeExclude);
  const RuleBook again(store_, "/home", {});
  EXPECT_TRUE(again.decide("/home/a/x", false).selected);
  EXPECT_EQ(again.type(".txt"), kTypeExclude);
}

TEST(Paths, AreNormalizedAsText) {
  EXPECT_EQ(normalizedPath("/a/../b/./c//d/"), "/b/c/d");
  EXPECT_EQ(normalizedPath("/"), "/");
  EXPECT_EQ(normalizedPath("/.."), "/");
  for (const std::string& path :
       {std::string("a"), std::string(), std::string("/a\0b", 4), std::string("/\xFF")}) {
    EXPECT_EQ(normalizedPath(path), std::nullopt);
  }
}

TEST(Paths, KnowWhatLiesBelow) {
  EXPECT_TRUE(isAtOrBelow("/a/b", "/a"));
  EXPECT_TRUE(isAtOrBelow("/a", "/a"));
  EXPECT_TRUE(isAtOrBelow("/a", "/"));
  EXPECT_FALSE(isAtOrBelow("/ab", "/a"));
  EXPECT_FALSE(isAtOrBelow("/", "/a"));
}

TEST(RuleBook, KeepsSoManyRulesAndNoMore) {
  const testing::TemporaryFolder folder;
  Store store(folder / "s");
  RuleBook rules(store, "/", {}, 2);
  EXPECT_TRUE(rules.setRule("/a", true));
  EXPECT_TRUE(rules.setRule("/b", true));
  EXPECT_FALSE(rules.setRule("/c", true));
  EXPECT_FALSE(store.rules().contains("/c"));
  EXPECT_TRUE(rules.setRule("/a", false)) << "one that is there can be changed";
  rules.removeRule("/b");
  EXPECT_TRUE(rules.setRule("/c", true));
}

TEST(RuleBook, KnowsNoPathThatIsLongerThanTheSystems) {
  EXPECT_TRUE(normalizedPath("/" + std::string(4094, 'x')));
  EXPECT_FALSE(normalizedPath("/" + std::string(4095, 'x')));
}

TEST_F(RuleBookTest, WhatIsIgnoredSaysWhyAndARuleAtOrBelowItOutranksIt) {
  rules_.setRule("/home/me", true);
  rules_.setMark("/home/me/build", Mark::cacheTag);
  EXPECT_TRUE(selected("/home/me/x"));
  EXPECT_FALSE(selected("/home/me/build/deep/x"));
  const Decision decision = rules_.decide("/home/me/build/deep/x", false);
  EXPECT_EQ(decision.ignoredAt, "/home/me/build");
  EXPECT_EQ(decision.ignoring, "@cache-tag");
  EXPECT_FALSE(rules_.decide("/home/me/build", true).mayHold);
  rules_.setRule("/home/me/build/deep", true);
  EXPECT_TRUE(selected("/home/me/build/deep/x"));
  EXPECT_FALSE(selected("/home/me/build/x"));
  EXPECT_TRUE(rules_.decide("/home/me/build", true).mayHold) << "something below it is selected";
  rules_.setRule("/home/me/build", true);
  EXPECT_TRUE(selected("/home/me/build/x"));
  EXPECT_FALSE(selected("/home/me/.cache/x"));
  rules_.setRule("/home/me/.cache/x", true);
  EXPECT_TRUE(selected("/home/me/.cache/x"));
}

TEST_F(RuleBookTest, ATypeDoesNotOutrankWhatIsIgnored) {
  rules_.setRule("/home/me", true);
  rules_.setType(".doc", kTypeBackup);
  EXPECT_FALSE(selected("/home/me/.cache/x.doc"));
  EXPECT_TRUE(selected("/home/you/x.doc"));
}

TEST_F(RuleBookTest, TheListOfWhatIsIgnoredIsKept) {
  rules_.setRule("/home/me", true);
  rules_.setMark("/home/me/a", Mark::attribute);
  rules_.setIgnored("*.iso");
  EXPECT_FALSE(selected("/home/me/x.iso"));
  EXPECT_TRUE(selected("/home/me/a/x")) << "marks are not on the list";
  EXPECT_TRUE(selected("/home/me/.cache/x"));
  const RuleBook again(store_, "/home", {});
  EXPECT_EQ(again.ignored(), "*.iso");
  EXPECT_FALSE(again.decide("/home/me/x.iso", false).selected);
}

TEST_F(RuleBookTest, MarksGoWithTheirFolders) {
  EXPECT_TRUE(rules_.setMark("/home/me/a/b", Mark::cacheTag));
  EXPECT_FALSE(rules_.setMark("/home/me/a/b", Mark::cacheTag)) << "it is known";
  EXPECT_TRUE(rules_.setMark("/home/me/ab", Mark::cacheTag));
  rules_.dropMarks("/home/me/a");
  EXPECT_FALSE(rules_.isMarked("/home/me/a/b", Mark::cacheTag));
  EXPECT_TRUE(rules_.isMarked("/home/me/ab", Mark::cacheTag));
  EXPECT_TRUE(rules_.setMark("/home/me/ab", Mark::none));
  EXPECT_FALSE(rules_.setMark("/home/me/ab", Mark::none));
}

TEST_F(RuleBookTest, AllFilesOfAFolderAreDecidedAtOnceUnlessOneMayDiffer) {
  rules_.setRule("/home/me", true);
  EXPECT_EQ(rules_.decideFiles("/home/me/a"), true);
  EXPECT_EQ(rules_.decideFiles("/home/you"), false);
  EXPECT_EQ(rules_.decideFiles("/home/me/.cache/x"), false);
  EXPECT_EQ(rules_.decideFiles("/home/cache/x"), false) << "barred";
  EXPECT_EQ(rules_.decideFiles("/home"), std::nullopt) << "the policy bars something in it";
  rules_.setRule("/home/me/a/x", false);
  EXPECT_EQ(rules_.decideFiles("/home/me/a"), std::nullopt);
  EXPECT_EQ(rules_.decideFiles("/home/me/b"), true);
  rules_.setMark("/home/me/b/x", Mark::attribute);
  EXPECT_EQ(rules_.decideFiles("/home/me/b"), std::nullopt);
  EXPECT_EQ(rules_.decideFiles("/home/me/c"), true);
  rules_.setType(".doc", kTypeExclude);
  EXPECT_EQ(rules_.decideFiles("/home/me/c"), std::nullopt);
}

}  // namespace
}  // namespace keldane
