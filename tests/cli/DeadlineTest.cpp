#include "cli/Deadline.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(DeadlineDeathTest, EndsTheProcessWithItsSentenceAndStatus) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const Deadline deadline(0.01, "It took too long.", 7);
        std::this_thread::sleep_for(std::chrono::minutes(1));
      },
      ::testing::ExitedWithCode(7), "It took too long.");
}

TEST(Deadline, DoesNothingOnceItIsGone) {
  for (int i = 0; i < 100; ++i) {
    Deadline deadline(1000, "", 1);
    deadline.renew();
  }
}

TEST(DeadlineDeathTest, MoreThanAClockCountsIsNotOverAtOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const Deadline deadline(1e10, "It took too long.", 7);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        _exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(Deadline, NoSecondsAreNoLimit) {
  Deadline deadline(0, "", 1);
  deadline.renew();
}

}  // namespace
}  // namespace keldane
