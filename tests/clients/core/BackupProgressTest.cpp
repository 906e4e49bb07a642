#include "clients/core/BackupProgress.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

using std::chrono::seconds;

class BackupProgressTest : public ::testing::Test {
 protected:
  void tell(std::uint64_t files, std::uint64_t bytes, int second) {
    progress_.update(files, bytes, BackupProgress::Clock::time_point(seconds(second)));
  }
  BackupProgress progress_;
};

TEST_F(BackupProgressTest, NothingPendingIsDone) {
  EXPECT_EQ(progress_.fraction(), 1);
  tell(0, 0, 0);
  EXPECT_EQ(progress_.fraction(), 1);
  EXPECT_EQ(progress_.timeLeft(), seconds(0));
}

TEST_F(BackupProgressTest, WhatLeavesThePendingListIsDone) {
  tell(10, 1000, 0);
  EXPECT_EQ(progress_.fraction(), 0);
  EXPECT_EQ(progress_.timeLeft(), std::nullopt) << "nothing has moved yet";
  tell(5, 250, 5);
  EXPECT_EQ(progress_.fraction(), 0.75);
  EXPECT_EQ(progress_.bytesPerSecond(), 150);
  EXPECT_EQ(progress_.filesPerSecond(), 1);
  EXPECT_EQ(progress_.timeLeft(), seconds(2));
}

TEST_F(BackupProgressTest, WhatComesInMakesTheWholeLarger) {
  tell(10, 1000, 0);
  tell(5, 500, 1);
  tell(15, 1500, 2);
  EXPECT_EQ(progress_.fraction(), 0.25);
}

TEST_F(BackupProgressTest, EmptyFilesCountByTheirNumber) {
  tell(4, 0, 0);
  tell(1, 0, 3);
  EXPECT_EQ(progress_.fraction(), 0.75);
  EXPECT_EQ(progress_.timeLeft(), seconds(1));
}

TEST_F(BackupProgressTest, ANewBatchBeginsAtNothing) {
  tell(2, 20, 0);
  tell(0, 0, 1);
  EXPECT_EQ(progress_.fraction(), 1);
  tell(4, 40, 100);
  EXPECT_EQ(progress_.fraction(), 0);
  EXPECT_EQ(progress_.bytesPerSecond(), 0);
}

TEST_F(BackupProgressTest, TheRateIsThatOfTheLastHalfMinute) {
  tell(1000, 1000000, 0);
  tell(900, 900000, 10);
  for (int second = 20; second <= 60; second += 10) {
    tell(900, 900000, second);
  }
  EXPECT_EQ(progress_.bytesPerSecond(), 0);
  EXPECT_EQ(progress_.timeLeft(), std::nullopt);
}

TEST_F(BackupProgressTest, RatesAreForgottenOnDemandAndTheFractionIsKept) {
  tell(10, 1000, 0);
  tell(5, 500, 1);
  progress_.forgetRates();
  EXPECT_EQ(progress_.bytesPerSecond(), 0);
  tell(5, 500, 100);
  EXPECT_EQ(progress_.fraction(), 0.5);
  EXPECT_EQ(progress_.bytesPerSecond(), 0);
}

TEST_F(BackupProgressTest, TwoReportsAtOneTimeGiveNoRate) {
  tell(10, 1000, 0);
  tell(5, 500, 0);
  EXPECT_EQ(progress_.bytesPerSecond(), 0);
  EXPECT_EQ(progress_.timeLeft(), std::nullopt);
}

TEST_F(BackupProgressTest, ATimeThatNobodyLivesToSeeIsNone) {
  tell(2, ~std::uint64_t{0}, 0);
  tell(2, ~std::uint64_t{0} - 1, 1000);
  EXPECT_EQ(progress_.timeLeft(), std::nullopt);
}

}  // namespace
}  // namespace keldane
