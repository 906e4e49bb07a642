#include "daemon/backup/RepositoryWatch.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

const EngineAnswer kAway{Health::unreachable, "The server is away."};

TEST(RepositoryWatchTest, PausesTwiceAsLongAfterEachFailureUpToTenMinutes) {
  RepositoryWatch watch;
  EXPECT_TRUE(watch.mayTry());
  const auto begin = RepositoryWatch::Clock::now();
  const int seconds[] = {5, 10, 20, 40, 80, 160, 320, 600, 600};
  for (const int pause : seconds) {
    watch.report(kAway);
    EXPECT_FALSE(watch.mayTry(begin + std::chrono::seconds(pause - 1))) << pause;
    EXPECT_TRUE(watch.mayTry(RepositoryWatch::Clock::now() + std::chrono::seconds(pause))) << pause;
  }
}

TEST(RepositoryWatchTest, LooksForADiskEveryFiveSeconds) {
  RepositoryWatch watch;
  for (int i = 0; i < 9; ++i) {
    watch.report({Health::notConnected, ""});
    EXPECT_FALSE(watch.mayTry());
    EXPECT_TRUE(watch.mayTry(RepositoryWatch::Clock::now() + std::chrono::seconds(5)));
  }
}

TEST(RepositoryWatchTest, IsOverWithTheNextSuccess) {
  RepositoryWatch watch;
  watch.report(kAway);
  EXPECT_EQ(watch.standing().detail, "The server is away.");
  watch.report({});
  EXPECT_TRUE(watch.standing());
  EXPECT_TRUE(watch.mayTry());
}

TEST(RepositoryWatchTest, TellsOfEachKindOfFailureOnceAndOfItsEnd) {
  std::vector<Health> told;
  RepositoryWatch watch([&](const EngineAnswer& answer) { told.push_back(answer.health); });
  watch.report({});
  watch.report(kAway);
  watch.report(kAway);
  watch.report({Health::full, ""});
  watch.report({});
  EXPECT_EQ(told, (std::vector<Health>{Health::unreachable, Health::full, Health::ready}));
}

TEST(RepositoryWatchTest, ACancelledCallChangesNothing) {
  RepositoryWatch watch;
  watch.report(kAway);
  watch.report({Health::cancelled, ""});
  EXPECT_EQ(watch.standing().health, Health::unreachable);
}

TEST(RepositoryWatchTest, APersonCanTryAtOnce) {
  RepositoryWatch watch;
  watch.report(kAway);
  watch.tryNow();
  EXPECT_TRUE(watch.mayTry());
  EXPECT_FALSE(watch.standing()) << "nothing has succeeded yet";
}

}  // namespace
}  // namespace keldane
