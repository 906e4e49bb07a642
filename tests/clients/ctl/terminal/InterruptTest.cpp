#include "clients/ctl/terminal/Interrupt.h"

#include <gtest/gtest.h>

#include <csignal>

namespace keldane {
namespace {

using std::chrono::milliseconds;

TEST(Interrupt, NotesTheFirstSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Interrupt interrupt;
    EXPECT_FALSE(interrupt.wait(milliseconds(0)));
    std::raise(signal);
    EXPECT_TRUE(interrupt.wait(std::chrono::minutes(1)));
    EXPECT_TRUE(interrupt.wait(milliseconds(0))) << "and remembers it";
  }
}

TEST(Interrupt, LeavesASecondSignalToEndTheProcess) {
  EXPECT_EXIT(
      {
        Interrupt interrupt;
        std::raise(SIGINT);
        std::raise(SIGINT);
      },
      ::testing::KilledBySignal(SIGINT), "");
}

TEST(Interrupt, LeavesSignalsAsTheyAreAfterwards) {
  { const Interrupt interrupt; }
  EXPECT_EXIT(std::raise(SIGTERM), ::testing::KilledBySignal(SIGTERM), "");
}

}  // namespace
}  // namespace keldane
