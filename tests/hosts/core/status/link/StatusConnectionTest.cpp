#include "hosts/core/status/link/StatusConnection.h"

#include <gtest/gtest.h>

#include <optional>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::FakeDaemon;
using namespace std::chrono_literals;

StatusTiming timing() {
  StatusTiming timing;
  timing.firstRetry = 1min;
  timing.longestRetry = 3min;
  timing.lookAtSocket = 1h;
  return timing;
}

class StatusConnectionTest : public ::testing::Test {
 protected:
  /// Connects at this time of the test's own clock. The attempt tells when it failed.
  StatusConnection::Attempt connectAfter(StatusTiming::Duration time, bool isAsked = false) {
    return connection_.connect(isAsked, begin_ + time);
  }
  bool failsAfter(StatusTiming::Duration time) {
    const StatusConnection::Attempt attempt = connectAfter(time);
    EXPECT_FALSE(attempt.isConnected);
    return attempt.isLost;
  }
  void end(FakeDaemon& daemon) {
    daemon.stop();
    ASSERT_TRUE(eventually([&] { return connection_.isAtEnd(); }));
  }

  testing::TemporaryFolder folder_;
  const std::string path_ = folder_ / "d.sock";
  const StatusConnection::Time begin_ = std::chrono::steady_clock::now();
  StatusConnection connection_{path_, timing()};
};

TEST_F(StatusConnectionTest, IsNewOnce) {
  const FakeDaemon daemon(path_);
  const StatusConnection::Attempt first = connectAfter(0s);
  EXPECT_TRUE(first.isConnected && first.isNew && !first.isLost);
  const StatusConnection::Attempt second = connectAfter(0s);
  EXPECT_TRUE(second.isConnected && !second.isNew && !second.isLost);
  EXPECT_FALSE(connection_.isAway());
}

TEST_F(StatusConnectionTest, PausesGrowUpToTheLongest) {
  EXPECT_TRUE(failsAfter(0s));
  EXPECT_TRUE(connection_.isAway());
  EXPECT_EQ(connection_.nextLook(begin_), begin_ + 1min);
  EXPECT_FALSE(failsAfter(59s)) << "no attempt within the pause";
  EXPECT_TRUE(failsAfter(60s));
  EXPECT_FALSE(failsAfter(60s + 119s));
  EXPECT_TRUE(failsAfter(60s + 120s));
  EXPECT_FALSE(failsAfter(180s + 179s));
  EXPECT_TRUE(failsAfter(180s + 180s)) << "three minutes are the longest, not four";
}

TEST_F(StatusConnectionTest, WhoAsksNeedNotWaitForThePause) {
  EXPECT_TRUE(failsAfter(0s));
  EXPECT_TRUE(connectAfter(1s, true).isLost) << "an attempt was made";
}

TEST_F(StatusConnectionTest, ANewSocketEndsThePause) {
  EXPECT_TRUE(failsAfter(0s));
  const FakeDaemon daemon(path_);
  EXPECT_TRUE(connectAfter(1s).isNew);
}

TEST_F(StatusConnectionTest, ALinkThatEndsWithoutAnAnswerIsAFailure) {
  {
    FakeDaemon daemon(path_);
    ASSERT_TRUE(connectAfter(0s).isNew);
    end(daemon);
  }
  EXPECT_TRUE(connectAfter(0s).isLost) << "it was turned away";
  EXPECT_TRUE(connection_.isAway());
  EXPECT_EQ(connection_.nextLook(begin_), begin_ + 1min);
  EXPECT_FALSE(connectAfter(1s).isLost) << "no attempt within the pause";
}

TEST_F(StatusConnectionTest, ALinkThatAnsweredIsMadeAgainAtOnce) {
  std::optional<FakeDaemon> daemon(std::in_place, path_);
  ASSERT_TRUE(connectAfter(0s).isNew);
  connection_.hasAnswered();
  end(*daemon);
  daemon.reset();
  daemon.emplace(path_);
  const StatusConnection::Attempt attempt = connectAfter(0s);
  EXPECT_TRUE(attempt.isNew && !attempt.isLost);
}

TEST_F(StatusConnectionTest, LeavingIsNoFailure) {
  FakeDaemon daemon(path_);
  ASSERT_TRUE(connectAfter(0s).isNew);
  connection_.leave();
  const StatusConnection::Attempt attempt = connectAfter(0s);
  EXPECT_TRUE(attempt.isNew && !attempt.isLost);
}

}  // namespace
}  // namespace keldane
