#include "daemon/care/BackupAge.h"

#include <gtest/gtest.h>

#include <atomic>

#include "daemon/Clock.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"

namespace keldane {
namespace {

constexpr double kDay = 86400;

class BackupAgeTest : public ::testing::Test {
 protected:
  void goodAt(double time) {
    store_.setValue(Store::Table::settings, "lastGoodBackup", std::to_string(time));
  }
  testing::TemporaryFolder folder_;
  Store store_{folder_ / "store"};
  RuleBook rules_{store_, "/", {}};
  std::atomic<int> alerts_ = 0;
  BackupAge age_{store_, rules_, [this](const std::string&) { ++alerts_; }};
};

TEST_F(BackupAgeTest, WhereNothingIsSelectedThereIsNothingToMiss) {
  goodAt(0);
  EXPECT_FALSE(age_.complaint(100 * kDay));
}

TEST_F(BackupAgeTest, ComplainsAfterThreeDaysUnlessAnotherLimitWasSet) {
  rules_.setRule("/a", true);
  goodAt(1000);
  EXPECT_FALSE(age_.complaint(1000 + 3 * kDay - 1));
  EXPECT_EQ(age_.complaint(1000 + 3 * kDay + 1), "The last good backup is 3 days old.");
  store_.setValue(Store::Table::settings, "alertDays", "10");
  EXPECT_FALSE(age_.complaint(1000 + 9 * kDay));
  EXPECT_TRUE(age_.complaint(1000 + 11 * kDay));
  store_.setValue(Store::Table::settings, "alertDays", "0");
  EXPECT_FALSE(age_.complaint(1000 + 100 * kDay)) << "switched off";
}

TEST_F(BackupAgeTest, BeforeTheFirstGoodBackupTimeCountsFromTheFirstLook) {
  rules_.setRule("/a", true);
  EXPECT_FALSE(age_.complaint(1000));
  EXPECT_FALSE(age_.complaint(1000 + 2 * kDay));
  EXPECT_EQ(age_.complaint(1000 + 4 * kDay), "Nothing has been backed up for 4 days.");
}

TEST_F(BackupAgeTest, TellsItByItself) {
  rules_.setRule("/a", true);
  goodAt(timeOfDay() - 5 * kDay);
  age_.start();
  EXPECT_TRUE(testing::eventually([&] { return alerts_ == 1; }));
  age_.stop();
}

}  // namespace
}  // namespace keldane
