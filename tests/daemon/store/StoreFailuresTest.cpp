#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using StoreFailures = testing::StoreFixture;

TEST_F(StoreFailures, AFailureKeepsItsFirstDateAndItsLastReason) {
  store.setFailure("/b", "denied", 10);
  store.setFailure("/a", "vanished", 20);
  store.setFailure("/b", "input/output error", 30);
  EXPECT_EQ(store.failureCount(), 2U);
  EXPECT_EQ(store.failure("/b"), "input/output error");
  EXPECT_EQ(store.failure("/none"), std::nullopt);
  const std::vector<FailureRecord> failures = store.failures();
  ASSERT_EQ(failures.size(), 2U);
  EXPECT_EQ(failures[0].path, "/a");
  EXPECT_EQ(failures[1].since, 10);
  EXPECT_EQ(store.failures(1).size(), 1U);
  store.clearFailure("/b");
  store.clearFailure("/none");
  EXPECT_EQ(store.failureCount(), 1U);
  EXPECT_EQ(Store(folder / "s").failureCount(), 1U);
}

TEST_F(StoreFailures, AFolderKnowsWhatFailedAtItAndBelowIt) {
  for (const char* path : {"/d", "/d/a", "/d/e/b", "/d!"}) {
    store.setFailure(path, "denied", 10);
  }
  EXPECT_EQ(store.failuresBelow("/d"),
            (std::map<std::string, std::string>{{"/d", "denied"}, {"/d/a", "denied"}, {"/d/e/b", "denied"}}));
  EXPECT_EQ(store.failuresBelow("/").size(), 4U);
  store.clearFailuresBelow("/d/e");
  EXPECT_FALSE(store.hasFailureBelow("/d/e"));
  EXPECT_TRUE(store.hasFailureBelow("/d/a"));
  store.clearFailuresBelow("/d");
  EXPECT_EQ(store.failureCount(), 1U);
  EXPECT_TRUE(store.hasFailureBelow("/d!"));
}

}  // namespace
}  // namespace keldane
