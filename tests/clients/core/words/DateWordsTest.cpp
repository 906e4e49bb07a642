#include "clients/core/words/DateWords.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

namespace keldane {
namespace {

class DateWordsTest : public ::testing::Test {
 protected:
  DateWordsTest() {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    now_ = at(2026, 11, 1, 15, 30, 20);
  }
  ~DateWordsTest() override {
    unsetenv("TZ");
    tzset();
  }
  static std::int64_t at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
  }
  std::optional<std::int64_t> named(const std::string& text) const { return timeNamed(text, now_); }

  std::time_t now_ = 0;
};

TEST_F(DateWordsTest, ReadsDaysAndTimesOfDay) {
  EXPECT_EQ(named("2026-10-20"), at(2026, 10, 20));
  EXPECT_EQ(named("2026-10-20 14:05"), at(2026, 10, 20, 14, 5));
  EXPECT_EQ(named("2026-10-20T14:05:59"), at(2026, 10, 20, 14, 5, 59));
  EXPECT_EQ(named("  2026-2-3   9:00 "), at(2026, 2, 3, 9));
  EXPECT_EQ(named("1970-01-02"), at(1970, 1, 2));
}

TEST_F(DateWordsTest, ReadsDaysByTheirNames) {
  EXPECT_EQ(named("now"), now_);
  EXPECT_EQ(named("today"), at(2026, 11, 1));
  EXPECT_EQ(named("Today 8:15"), at(2026, 11, 1, 8, 15));
  EXPECT_EQ(named("yesterday"), at(2026, 10, 31)) << "the month has changed since";
  EXPECT_EQ(named("yesterday 23:59"), at(2026, 10, 31, 23, 59));
}

TEST_F(DateWordsTest, ReadsHowLongAgo) {
  EXPECT_EQ(named("5 minutes ago"), now_ - 300);
  EXPECT_EQ(named("1 hour ago"), now_ - 3600);
  EXPECT_EQ(named("2 days ago"), at(2026, 10, 30, 15, 30, 20));
  EXPECT_EQ(named("1 week ago"), at(2026, 10, 25, 15, 30, 20));
  EXPECT_EQ(named("3 months ago"), at(2026, 8, 1, 15, 30, 20)) << "the same time of day in summer";
  EXPECT_EQ(named("10 Years ago"), at(2016, 11, 1, 15, 30, 20));
  EXPECT_EQ(named("0 days ago"), now_);
}

TEST_F(DateWordsTest, KnowsTheClockThatChanges) {
  EXPECT_EQ(*named("2026-10-26") - *named("2026-10-25"), 25 * 3600);
  EXPECT_TRUE(named("2026-03-29 02:30")) << "an hour that was left out";
}

TEST_F(DateWordsTest, RefusesWhatIsNoDate) {
  for (const char* text : {"",
                           " ",
                           "soon",
                           "2026",
                           "2026-11",
                           "2026-02-30",
                           "2026-13-01",
                           "2026-00-01",
                           "2026-01-00",
                           "1969-12-31",
                           "2026-11-20 24:00",
                           "2026-11-20 12:60",
                           "2026-11-20 12:00:60",
                           "2026-11-20 12",
                           "2026-11-20 12:00 noon",
                           "20261-11-20",
                           "2026-11-2x",
                           "2026--1-1",
                           "2026-11-20 noon",
                           "two days ago",
                           "2 days",
                           "2 moons ago",
                           "-2 days ago",
                           "2 days hence",
                           "9999999 days ago",
                           "99999999999999999999 days ago",
                           "2 days ago today",
                           "yesterday noon",
                           "now 12:00",
                           "12:00"}) {
    EXPECT_FALSE(named(text)) << text;
  }
}

}  // namespace
}  // namespace keldane
