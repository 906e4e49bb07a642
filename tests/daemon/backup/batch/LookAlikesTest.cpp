#include "daemon/backup/batch/LookAlikes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/RecordingEngine.h"

namespace keldane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::RecordingEngine;
using testing::TemporaryFolder;
using ::testing::UnorderedElementsAre;
using Word = LookAlikes::Word;

/// Reports the files that the test names as stored.
struct ScriptedEngine : RecordingEngine {
  using RecordingEngine::RecordingEngine;
  EngineAnswer list(const std::string&, const std::string& path, const Visit& visit, EngineJob&) override {
    listed.push_back(path);
    for (const std::string& file : stored) {
      visit({asTold(file), EntryKind::file});
    }
    visit({path, EntryKind::folder});
    return {};
  }
  EngineAnswer fetch(const std::string&, const std::string& path, int, EngineJob&) override {
    fetched.push_back(path);
    return !trouble                ? trouble
           : stored.contains(path) ? EngineAnswer()
                                   : EngineAnswer{Health::failed, "not there"};
  }
  std::set<std::string> stored;
  std::vector<std::string> listed, fetched;
  EngineAnswer trouble;
};

class LookAlikesTest : public ::testing::Test {
 protected:
  EngineAnswer settle(const std::set<std::string>& failed = {}) {
    EngineJob job;
    return files_.settle(
        engine_, "abcdef01",
        [&](const std::string& name) {
          return std::any_of(engine_.stored.begin(), engine_.stored.end(),
                             [&](const std::string& file) { return asTold(file) == name; });
        },
        [&](const std::string& name) { return failed.contains(name); }, job);
  }
  TemporaryFolder folder_;
  ScriptedEngine engine_{RepositoryFiles{DataFolder{folder_ / "data"}}};
  LookAlikes files_;
};

TEST_F(LookAlikesTest, OfANameThatLooksLikeNoOtherTheEnginesWordCounts) {
  files_.add("/a/text");
  files_.add("/a/caf\xe9");
  files_.add("/a/caf\xe9");
  engine_.stored = {"/a/text", "/a/caf\xe9"};
  EXPECT_TRUE(settle());
  EXPECT_EQ(files_.wordOn("/a/text"), Word::engines);
  EXPECT_EQ(files_.wordOn("/a/caf\xe9"), Word::engines);
  EXPECT_THAT(engine_.listed, IsEmpty());
  EXPECT_THAT(engine_.fetched, IsEmpty());
}

TEST_F(LookAlikesTest, WhenAllAreThereOneIsFetched) {
  engine_.stored = {"/a/\xe8", "/a/\xe9", "/a/\xef\xbf\xbd"};
  for (const std::string& path : engine_.stored) {
    files_.add(path);
  }
  EXPECT_TRUE(settle());
  for (const std::string& path : engine_.stored) {
    EXPECT_EQ(files_.wordOn(path), Word::stored);
  }
  EXPECT_THAT(engine_.listed, ElementsAre("/a"));
  EXPECT_EQ(engine_.fetched.size(), 1U);
}

TEST_F(LookAlikesTest, WhenOneIsMissingEachIsFetched) {
  files_.add("/a\xff/\xe8");
  files_.add("/a\xff/\xe9");
  engine_.stored = {"/a\xff/\xe9"};
  EXPECT_TRUE(settle());
  EXPECT_EQ(files_.wordOn("/a\xff/\xe8"), Word::notStored);
  EXPECT_EQ(files_.wordOn("/a\xff/\xe9"), Word::stored);
  EXPECT_THAT(engine_.listed, ElementsAre("/"));
  EXPECT_THAT(engine_.fetched, UnorderedElementsAre("/a\xff/\xe8", "/a\xff/\xe9"));
}

TEST_F(LookAlikesTest, AFailureThatSeveralMayHaveHadIsLookedInto) {
  files_.add("/a/\xe9");  // the failure may be that of another file, which this batch does not store
  engine_.stored = {"/a/\xe9"};
  EXPECT_TRUE(settle({"/a/\xef\xbf\xbd"}));
  EXPECT_EQ(files_.wordOn("/a/\xe9"), Word::stored);
}

TEST_F(LookAlikesTest, WhatTheEngineDidNotTakeNeedsNoQuestion) {
  files_.add("/a/\xe8");
  files_.add("/a/\xe9");
  EXPECT_TRUE(settle());
  EXPECT_EQ(files_.wordOn("/a/\xe9"), Word::engines);
  EXPECT_THAT(engine_.listed, IsEmpty());
}

TEST_F(LookAlikesTest, WithoutARepositoryNothingIsKnown) {
  files_.add("/a/\xe8");
  files_.add("/a/\xe9");
  engine_.stored = {"/a/\xe8", "/a/\xe9"};
  engine_.trouble = {Health::unreachable, "gone"};
  EXPECT_EQ(settle().health, Health::unreachable);
  EXPECT_EQ(files_.wordOn("/a/\xe8"), Word::unknown);
  EXPECT_EQ(files_.wordOn("/a/\xe9"), Word::unknown);
}

}  // namespace
}  // namespace keldane
