#include "hosts/core/status/cache/StatusCache.h"

#include <gtest/gtest.h>

#include <set>

namespace keldane {
namespace {

using Clock = StatusCache::Clock;
using namespace std::chrono_literals;

const FileStatus kBackedUp{Emblem::backedUp, "Backed up", 1};
const FileStatus kWaiting{Emblem::waiting, "Waiting to be backed up", 0};

class StatusCacheTest : public ::testing::Test {
 protected:
  /// Shows files of "/f" that are named by numbers.
  void show(int count, int first = 0) {
    for (int i = first; i < first + count; ++i) {
      cache_.find("/f/" + std::to_string(i));
    }
  }
  static StatusCache::Answer answer(int count, const FileStatus& status) {
    StatusCache::Answer answer;
    for (int i = 0; i < count; ++i) {
      answer.emplace(std::to_string(i), status);
    }
    return answer;
  }
  /// Answers the question that is due at a time; false when none is due.
  bool answerNext(Clock::time_point now, int count, const FileStatus& status) {
    const auto question = cache_.nextQuestion(now);
    if (question) {
      changed_ = cache_.keep(*question, answer(count, status), 1ms);
    }
    return question.has_value();
  }

  const StatusTiming timing_{};
  StatusCache cache_{timing_};
  std::vector<std::string> changed_;
  const Clock::time_point soon_ = Clock::now() + 1s;
};

TEST_F(StatusCacheTest, AsksAfterAMomentSoThatManyGoTogether) {
  const Clock::time_point begin = Clock::now();
  EXPECT_FALSE(cache_.nextDue(begin));
  EXPECT_EQ(cache_.find("/f/a"), nullptr);
  EXPECT_FALSE(cache_.nextQuestion(begin)) << "not yet";
  EXPECT_GT(*cache_.nextDue(begin), begin);
  cache_.find("/f/b");
  const auto question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question);
  EXPECT_FALSE(question->whole) << "two files are not worth a listing";
  EXPECT_EQ(std::set<std::string>(question->names.begin(), question->names.end()),
            (std::set<std::string>{"a", "b"}));
  EXPECT_EQ(cache_.keep(*question, {{"a", kBackedUp}}, 1ms), (std::vector<std::string>{"/f/a"}));
  EXPECT_EQ(*cache_.find("/f/a"), kBackedUp);
  EXPECT_EQ(*cache_.find("/f/b"), FileStatus()) << "the daemon knows nothing of it";
  EXPECT_FALSE(cache_.nextQuestion(soon_));
}

TEST_F(StatusCacheTest, ListsAFolderOfManyAndKnowsTheOthersBeforeTheyAreAskedFor) {
  show(100);
  const auto question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question && question->whole);
  show(50, 100);  // more files are shown while the daemon answers
  EXPECT_EQ(cache_.keep(*question, answer(200, kBackedUp), 1ms).size(), 150U);
  EXPECT_FALSE(cache_.nextQuestion(soon_)) << "those that came meanwhile are known as well";
  EXPECT_EQ(*cache_.find("/f/199"), kBackedUp);
}

TEST_F(StatusCacheTest, TellsOnlyWhatHasChanged) {
  show(100);
  ASSERT_TRUE(answerNext(soon_, 100, kBackedUp));
  ASSERT_TRUE(answerNext(soon_ + timing_.unchanged, 100, kBackedUp));
  EXPECT_TRUE(changed_.empty());
  StatusCache::Answer other = answer(100, kBackedUp);
  other["7"] = kWaiting;
  const auto question = cache_.nextQuestion(soon_ + 2 * timing_.unchanged);
  ASSERT_TRUE(question);
  EXPECT_EQ(cache_.keep(*question, other, 1ms), (std::vector<std::string>{"/f/7"}));
}

TEST_F(StatusCacheTest, ListsAFolderThatIsAboutToBeShownWithoutWaiting) {
  cache_.expect("/f");
  const Clock::time_point now = Clock::now();
  EXPECT_EQ(cache_.nextDue(now), now);
  const auto question = cache_.nextQuestion(now);
  ASSERT_TRUE(question && question->whole);
  EXPECT_TRUE(cache_.keep(*question, answer(3, kBackedUp), 1ms).empty()) << "nothing is shown yet";
  ASSERT_NE(cache_.find("/f/2"), nullptr);
  EXPECT_EQ(*cache_.find("/f/2"), kBackedUp);
  cache_.expect("/f");
  EXPECT_FALSE(cache_.nextQuestion(now)) << "it is known";
}

TEST_F(StatusCacheTest, LetsALargeFolderOpenBeforeItTellsWhatItKnows) {
  show(20);
  answerNext(soon_, 2000, kBackedUp);
  EXPECT_EQ(cache_.find("/f/1900"), nullptr) << "it is known, and to be told a moment later";
  EXPECT_EQ(cache_.find("/f/1901"), nullptr);
  EXPECT_TRUE(cache_.takeLate(Clock::now() - 1s).empty()) << "not yet";
  const Clock::time_point now = Clock::now();
  EXPECT_LE(*cache_.nextDue(now), now + timing_.batchDelay);
  EXPECT_EQ(cache_.takeLate(soon_), (std::vector<std::string>{"/f/1900", "/f/1901"}));
  EXPECT_TRUE(cache_.takeLate(soon_).empty());
  EXPECT_EQ(*cache_.find("/f/1900"), kBackedUp) << "whoever is told asks again";
}

TEST_F(StatusCacheTest, TellsWhatItKnowsOfASmallerFolderAtOnce) {
  show(20);
  answerNext(soon_, 900, kBackedUp);
  ASSERT_NE(cache_.find("/f/899"), nullptr);
  EXPECT_EQ(*cache_.find("/f/899"), kBackedUp);
}

TEST_F(StatusCacheTest, LooksSoonerWhenTheStateHasChanged) {
  show(100);
  ASSERT_TRUE(answerNext(soon_, 100, kBackedUp));
  EXPECT_FALSE(cache_.nextQuestion(soon_ + timing_.afterChange));
  cache_.stateChanged();
  EXPECT_EQ(*cache_.nextDue(soon_), soon_ + timing_.afterChange);
  ASSERT_TRUE(answerNext(soon_ + timing_.afterChange, 100, kWaiting));
  EXPECT_EQ(changed_.size(), 100U);
  EXPECT_FALSE(cache_.nextQuestion(soon_ + 2 * timing_.afterChange)) << "it has been looked at since";
}

TEST_F(StatusCacheTest, LeavesALargeFolderAloneForLonger) {
  show(100);
  ASSERT_TRUE(answerNext(soon_, 2001, kBackedUp));
  cache_.stateChanged();
  EXPECT_EQ(*cache_.nextDue(soon_), soon_ + timing_.largeFolder);
}

TEST_F(StatusCacheTest, RestsForLongerWhatTakesLong) {
  show(100);
  const auto question = cache_.nextQuestion(soon_);
  cache_.keep(*question, answer(100, kBackedUp), 1s);
  EXPECT_EQ(*cache_.nextDue(soon_), soon_ + 100s);
  cache_.stateChanged();
  EXPECT_EQ(*cache_.nextDue(soon_), soon_ + 20s);
}

TEST_F(StatusCacheTest, AsksAtOnceAboutWhatACommandWasGivenFor) {
  show(3000);
  ASSERT_TRUE(answerNext(soon_, 3000, kBackedUp));
  cache_.hurry({"/f/5", "/f/nobody shows it", "/other/5"});
  const auto question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question);
  EXPECT_FALSE(question->whole);
  EXPECT_EQ(question->names, (std::vector<std::string>{"5"}));
  EXPECT_EQ(cache_.keep(*question, {{"5", kWaiting}}, 1ms), (std::vector<std::string>{"/f/5"}));
}

TEST_F(StatusCacheTest, AsksAboutManyNewFilesOfAFolderWithoutListingItAllTheTime) {
  show(100);
  ASSERT_TRUE(answerNext(soon_, 100, kBackedUp));
  show(300, 100);
  auto question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question);
  EXPECT_FALSE(question->whole);
  EXPECT_EQ(question->names.size(), StatusCache::kMostInABatch);
  question = cache_.nextQuestion(soon_);
  EXPECT_EQ(question->names.size(), 300 - StatusCache::kMostInABatch);
}

TEST_F(StatusCacheTest, AsksFileByFileWhereAFolderHasTooMany) {
  show(300);
  auto question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question && question->whole);
  cache_.setTooLarge("/f");
  question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question);
  EXPECT_FALSE(question->whole);
  cache_.putBack(*question, 6);
  EXPECT_EQ(question->names.size(), 6U);
  EXPECT_EQ(cache_.nextQuestion(soon_)->names.size(), StatusCache::kMostInABatch);
  EXPECT_EQ(cache_.nextQuestion(soon_)->names.size(), 300 - 6 - StatusCache::kMostInABatch);
}

TEST_F(StatusCacheTest, WhatIsGoneIsForgotten) {
  show(100);
  ASSERT_TRUE(answerNext(soon_, 100, kBackedUp));
  ASSERT_TRUE(answerNext(soon_ + timing_.unchanged, 60, kBackedUp));
  EXPECT_EQ(changed_.size(), 40U);
  EXPECT_EQ(cache_.count(), 60U);
  EXPECT_EQ(cache_.find("/f/99"), nullptr) << "who shows it all the same asks anew";
}

TEST_F(StatusCacheTest, ForgettingAllTellsWhatWasShownAndAsksAnew) {
  show(100);
  ASSERT_TRUE(answerNext(soon_, 200, kBackedUp));
  EXPECT_EQ(cache_.forgetAll().size(), 100U);
  EXPECT_TRUE(cache_.forgetAll().empty());
  EXPECT_EQ(cache_.find("/f/1"), nullptr);
  ASSERT_TRUE(answerNext(soon_, 200, kBackedUp));
  EXPECT_EQ(changed_.size(), 100U);
}

TEST_F(StatusCacheTest, IsBounded) {
  const int most = static_cast<int>(StatusCache::kMostFiles);
  for (int i = 0; i < most; ++i) {
    cache_.find("/old/" + std::to_string(i));
  }
  show(10);
  EXPECT_EQ(cache_.count(), 10U) << "the folder that was looked at least recently goes";
  show(most + 5);
  EXPECT_EQ(cache_.count(), StatusCache::kMostFiles);
  const auto question = cache_.nextQuestion(soon_);
  cache_.keep(*question, answer(3 * most, kBackedUp), 1ms);
  EXPECT_LE(cache_.count(), StatusCache::kMostFiles);
  for (int i = 0; i < 1000; ++i) {
    cache_.find("/folder " + std::to_string(i) + "/a");
  }
  EXPECT_LE(cache_.openFolders().size(), StatusCache::kMostFolders);
}

TEST_F(StatusCacheTest, KnowsTheOpenFoldersUntilTheyAreClosed) {
  show(10);
  cache_.find("/a");
  const auto open = cache_.openFolders();
  ASSERT_EQ(open.size(), 2U);
  EXPECT_EQ(open[0].path, "/");
  EXPECT_EQ(open[0].samples, (std::vector<std::string>{"/a"}));
  EXPECT_EQ(open[1].path, "/f");
  EXPECT_EQ(open[1].samples.size(), 8U);
  auto question = cache_.nextQuestion(soon_);
  ASSERT_TRUE(question);
  cache_.close(question->folder);
  EXPECT_TRUE(cache_.keep(*question, answer(10, kBackedUp), 1ms).empty());
  question = cache_.nextQuestion(soon_);
  cache_.close(question->folder);
  EXPECT_TRUE(cache_.isEmpty());
  EXPECT_EQ(cache_.count(), 0U);
  EXPECT_FALSE(cache_.nextDue(soon_));
}

}  // namespace
}  // namespace keldane
