#include "daemon/engine/process/Standstill.h"

#include <gtest/gtest.h>

namespace keldane::testing {
namespace {

using std::chrono::seconds;

std::string status(int elapsed, int bytes) {
  return R"({"message_type":"status","seconds_elapsed":)" + std::to_string(elapsed) +
         R"(,"percent_done":0.5,"total_files":1,"files_done":0,"total_bytes":2000,"bytes_done":)" +
         std::to_string(bytes) + "}";
}

TEST(StandstillTest, IsAMinuteOfTheSameNumbers) {
  Standstill standstill;
  const Standstill::Moment begin;
  for (int second = 0; second < 60; ++second) {
    EXPECT_FALSE(standstill.isSeenIn(status(second, 1000), begin + seconds(second))) << second;
  }
  EXPECT_TRUE(standstill.isSeenIn(status(60, 1000), begin + seconds(60)));
  EXPECT_EQ(standstill.totalBytes(), 2000U);
}

TEST(StandstillTest, EndsWithWhateverElseIsTold) {
  const std::string others[] = {status(30, 1001),
                                R"({"message_type":"verbose_status","action":"new","item":"/a"})", "text"};
  for (const std::string& other : others) {
    Standstill standstill;
    const Standstill::Moment begin;
    standstill.isSeenIn(status(0, 1000), begin);
    EXPECT_FALSE(standstill.isSeenIn(other, begin + seconds(30)));
    EXPECT_FALSE(standstill.isSeenIn(status(61, 1000), begin + seconds(61))) << other;
    EXPECT_FALSE(standstill.isSeenIn(status(62, 1000), begin + seconds(62))) << other;
    EXPECT_TRUE(standstill.isSeenIn(status(121, 1000), begin + seconds(121))) << other;
  }
}

}  // namespace
}  // namespace keldane::testing
