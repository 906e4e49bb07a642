#include "platform/threads/SignalsBlocked.h"

#include <gtest/gtest.h>

#include "tests/support/process/SignalMasks.h"

namespace keldane {
namespace {

TEST(SignalsBlocked, AThreadThatIsStartedMeanwhileTakesNoneAndTheOthersDoAsBefore) {
  const std::size_t before = testing::threadsThatTake(SIGUSR1);
  std::promise<void> end;
  std::thread thread;
  {
    const SignalsBlocked blocked;
    EXPECT_EQ(testing::threadsThatTake(SIGUSR1), before - 1);
    thread = std::thread([&] { end.get_future().wait(); });
  }
  for (const int signal : {SIGUSR1, SIGTERM, SIGCHLD, SIGINT, SIGALRM, SIGWINCH}) {
    EXPECT_EQ(testing::threadsThatTake(signal), before) << signal;
  }
  end.set_value();
  thread.join();
}

}  // namespace
}  // namespace keldane
