#include "clients/preferences/words/Headline.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

constexpr double kNow = 1'800'000'000;

PropertyList before(double seconds) { return Date::fromUnixTime(kNow - seconds); }

class HeadlineTest : public ::testing::Test {
 protected:
  HeadlineTest() {
    status_.connected = true;
    status_.health = "ready";
    status_.backedUpFiles = 12482;
    status_.lastGoodBackup = before(180);
  }
  Headline shown() const { return headline(status_, repository_, kNow); }

  StatusSnapshot status_;
  PropertyList repository_ = PropertyList::dictionary({});
};

TEST_F(HeadlineTest, SaysThatAllIsBackedUpWhenItIs) {
  EXPECT_EQ(shown().sentence, "All 12,482 files are backed up, last 3 minutes ago.");
  EXPECT_FALSE(shown().isTrouble);
  EXPECT_EQ(shown().remedy, Remedy::none);
  status_.backedUpFiles = 1;
  EXPECT_EQ(shown().sentence, "The only file is backed up, last 3 minutes ago.");
}

TEST_F(HeadlineTest, TellsOfADrillThatWentWell) {
  repository_ = PropertyList::dictionary(
      {{"lastDrill", before(0)}, {"drillCompared", 30}, {"drillHashed", 10}, {"drillFailed", 0}});
  EXPECT_NE(shown().sentence.find(" 40 samples were compared on 2027-01-"), std::string::npos)
      << shown().sentence;
}

TEST_F(HeadlineTest, ADrillThatFailedIsTrouble) {
  repository_ =
      PropertyList::dictionary({{"lastDrill", before(0)}, {"drillCompared", 30}, {"drillFailed", 1}});
  EXPECT_TRUE(shown().isTrouble);
  EXPECT_EQ(shown().remedy, Remedy::showStorage);
}

TEST_F(HeadlineTest, NeverSaysAllWhileSomethingWaits) {
  status_.pendingFiles = 2;
  EXPECT_EQ(shown().sentence, "Backing up: 12,482 of 12,484 files are backed up so far.");
  status_.pendingFiles = 0;
  status_.looksForMore = true;
  EXPECT_EQ(shown().sentence, "Looking for what is to be backed up.");
  status_.looksForMore = false;
  status_.failures = 3;
  EXPECT_EQ(shown().sentence, "3 files could not be backed up.");
  EXPECT_EQ(shown().remedy, Remedy::showFailures);
}

TEST_F(HeadlineTest, EachTroubleOfTheRepositoryHasAWayOut) {
  for (const char* health :
       {"notSetUp", "missing", "otherRepository", "wrongKey", "notConnected", "unreachable", "denied",
        "locked", "full", "damaged", "engineMissing", "engineTooOld", "failed", "somethingNew"}) {
    status_.health = health;
    EXPECT_TRUE(shown().isTrouble) << health;
    EXPECT_NE(shown().remedy, Remedy::none) << health;
    EXPECT_FALSE(shown().button.empty()) << health;
    EXPECT_EQ(shown().sentence.find("All"), std::string::npos) << health;
  }
}

TEST_F(HeadlineTest, WhatHoldsTheBackupUpIsSaidWithItsWayOut) {
  status_.pendingFiles = 2;
  status_.heldBy = "manual";
  EXPECT_EQ(shown().remedy, Remedy::backUpByItself);
  status_.heldBy = "off";
  EXPECT_EQ(shown().remedy, Remedy::switchOn);
  status_.heldBy = "recovering";
  EXPECT_EQ(shown().remedy, Remedy::goOn);
  status_.heldBy = "paused";
  status_.paused = true;
  status_.pausedMinutes = 90;
  EXPECT_EQ(shown().sentence, "The backup is paused for 1 h 30 min.");
  EXPECT_EQ(shown().remedy, Remedy::resume);
  status_.paused = false;
  status_.restingBecause = "on battery, 12 percent left";
  EXPECT_EQ(shown().sentence, "The backup rests: on battery, 12 percent left.");
}

TEST_F(HeadlineTest, AnOldBackupIsTroubleOnlyWhileSomethingWaits) {
  status_.lastGoodBackup = before(4 * 86400.0);
  EXPECT_FALSE(shown().isTrouble);
  status_.pendingFiles = 1;
  EXPECT_TRUE(shown().isTrouble);
  EXPECT_EQ(shown().sentence, "1 file waits, and the last good backup was 4 days ago.");
}

TEST_F(HeadlineTest, NothingChosenIsSaid) {
  status_.backedUpFiles = 0;
  status_.lastGoodBackup = {};
  EXPECT_EQ(shown().remedy, Remedy::chooseFiles);
}

TEST(AgoText, IsOfTheLargestUnit) {
  EXPECT_EQ(agoText(before(0), kNow), "just now");
  EXPECT_EQ(agoText(before(60), kNow), "1 minute ago");
  EXPECT_EQ(agoText(before(7200), kNow), "2 hours ago");
  EXPECT_EQ(agoText(before(3 * 86400.0), kNow), "3 days ago");
  EXPECT_EQ(agoText(before(-500), kNow), "just now");
  EXPECT_EQ(agoText({}, kNow), "");
}

TEST(AwayHeadline, IsTroubleAfterThreeDays) {
  constexpr double kDay = 86400;
  EXPECT_FALSE(awayHeadline(0, kNow)) << "never reached";
  EXPECT_FALSE(awayHeadline(kNow - 3 * kDay, kNow));
  const std::optional<Headline> away = awayHeadline(kNow - 3 * kDay - 1, kNow);
  ASSERT_TRUE(away);
  EXPECT_EQ(away->sentence, "Nothing is backed up: the backup daemon was last reached 3 days ago.");
  EXPECT_EQ(away->alert, AlertKind::noBackup);
  EXPECT_EQ(away->subject(), awayHeadline(kNow - 5 * kDay, kNow)->subject()) << "told once a day";
}

}  // namespace
}  // namespace keldane
