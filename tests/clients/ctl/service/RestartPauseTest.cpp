#include <gtest/gtest.h>

#include "clients/ctl/service/Supervisor.h"

namespace keldane {
namespace {

using std::chrono::seconds;

TEST(RestartPause, GrowsFromCrashToCrash) {
  RestartPause pause;
  for (const int expected : {5, 10, 20, 40, 80, 160, 300, 300}) {
    EXPECT_EQ(pause.after(seconds(1)), seconds(expected));
  }
}

TEST(RestartPause, BeginsAgainAfterALongRun) {
  RestartPause pause;
  pause.after(seconds(0));
  pause.after(seconds(599));
  EXPECT_EQ(pause.after(seconds(600)), seconds(5));
  EXPECT_EQ(pause.after(seconds(0)), seconds(10));
}

}  // namespace
}  // namespace keldane
