#include "daemon/scan/disk/FileFacts.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(FileFacts, DatesThatNanosecondsDoNotReachAreTheFirstOrTheLast) {
  using Limits = std::numeric_limits<std::int64_t>;
  EXPECT_EQ(nanoseconds({0, 0}), 0);
  EXPECT_EQ(nanoseconds({-1, 999'999'999}), -1);
  EXPECT_EQ(nanoseconds({9'223'372'035, 999'999'999}), 9'223'372'035'999'999'999);
  EXPECT_EQ(nanoseconds({-9'223'372'035, 1}), -9'223'372'034'999'999'999);
  EXPECT_EQ(nanoseconds({9'300'000'000, 5}), Limits::max());
  EXPECT_EQ(nanoseconds({-9'300'000'000, 5}), Limits::min());
  EXPECT_EQ(nanoseconds({Limits::max(), 999'999'999}), Limits::max());
  EXPECT_EQ(nanoseconds({Limits::min(), 0}), Limits::min());
}

}  // namespace
}  // namespace keldane
