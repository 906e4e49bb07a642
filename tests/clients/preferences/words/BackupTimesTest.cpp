#include "clients/preferences/words/BackupTimes.h"

#include <gtest/gtest.h>

#include <ctime>

#include "clients/core/words/DateWords.h"

namespace keldane {
namespace {

using Times = std::vector<double>;

TEST(BackupTimes, BeginWithTheFirstAndEndWithThePresent) {
  const BackupTimes times({10, 20, 50, 200}, 100);
  EXPECT_FALSE(times.isEmpty());
  EXPECT_EQ(times.begin(), 10);
  EXPECT_EQ(times.now(), 100);
}

TEST(BackupTimes, AreWhatLiesNearest) {
  const BackupTimes times({10, 20, 50}, 100);
  EXPECT_EQ(times.nearest(0), 10);
  EXPECT_EQ(times.nearest(14), 10);
  EXPECT_EQ(times.nearest(16), 20);
  EXPECT_EQ(times.nearest(50), 50);
  EXPECT_EQ(times.nearest(74), 50);
  EXPECT_EQ(times.nearest(76), 100);
  EXPECT_EQ(times.nearest(1000), 100);
}

TEST(BackupTimes, AreTheLastUpToATime) {
  const BackupTimes times({10, 20, 50}, 100);
  EXPECT_EQ(times.upTo(5), 10);
  EXPECT_EQ(times.upTo(10), 10);
  EXPECT_EQ(times.upTo(49), 20);
  EXPECT_EQ(times.upTo(99), 50);
  EXPECT_EQ(BackupTimes({}, 100).upTo(5), 100);
}

TEST(BackupTimes, AreSteppedThroughToEitherEnd) {
  const BackupTimes times({10, 20, 50}, 100);
  EXPECT_EQ(times.stepped(100, -1), 50);
  EXPECT_EQ(times.stepped(50, -1), 20);
  EXPECT_EQ(times.stepped(50, 1), 100);
  EXPECT_EQ(times.stepped(100, 1), 100);
  EXPECT_EQ(times.stepped(10, -1), 10);
  EXPECT_EQ(times.stepped(100, -10), 10);
  EXPECT_EQ(times.stepped(10, 10), 100);
}

TEST(BackupTimes, OfNothingAreThePresent) {
  const BackupTimes times({}, 100);
  EXPECT_TRUE(times.isEmpty());
  EXPECT_EQ(times.begin(), 100);
  EXPECT_EQ(times.nearest(5), 100);
  EXPECT_EQ(times.stepped(5, -1), 100);
  EXPECT_EQ(times.marks(10), Times());
}

TEST(BackupTimes, AreMarkedAsFarAsThereIsRoom) {
  const BackupTimes times({0, 1, 2, 50, 51, 90}, 100);
  EXPECT_EQ(times.marks(10), (Times{0, 50, 90}));
  EXPECT_EQ(times.marks(100), (Times{0, 1, 2, 50, 51, 90}));
}

TEST(BackupTimes, HaveATextThatMeansTheNextFullSecond) {
  const std::string text = exactTimeText(1'700'000'000.25);
  EXPECT_EQ(timeNamed(text, std::time(nullptr)), 1'700'000'001) << text;
}

}  // namespace
}  // namespace keldane
