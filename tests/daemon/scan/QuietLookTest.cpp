#include "daemon/scan/QuietLook.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using std::chrono::milliseconds;
using testing::TemporaryFolder;

class QuietLookTest : public ::testing::Test {
 protected:
  TemporaryFolder folder_;
  Store store_{folder_ / "store.sqlite"};
  RuleBook rules_{store_, "/", {}};
  PendingFiles pending_;
  Watcher watcher_{[](const std::vector<Change>&) {}};
  Scanner scanner_{store_, rules_, pending_, &watcher_};
  const milliseconds never_ = std::chrono::hours(1);
};

TEST_F(QuietLookTest, NothingIsDoneBeforeItIsDue) {
  folder_.write("f/a", "1");
  rules_.setRule(folder_ / "f", true);
  QuietLook look(scanner_, rules_, watcher_, {never_, never_, never_});
  const QuietLook::Step step = look.step();
  EXPECT_FALSE(step.news);
  EXPECT_GT(step.pause, milliseconds(1000));
  EXPECT_EQ(pending_.totals().files, 0U);
}

TEST_F(QuietLookTest, EverythingIsLookedAtInSmallSteps) {
  for (int i = 0; i < 100; ++i) {
    folder_.write("f/" + std::to_string(i) + "/a", "1");
  }
  rules_.setRule(folder_ / "f", true);
  QuietLook look(scanner_, rules_, watcher_, {milliseconds(0), never_, never_});
  EXPECT_TRUE(look.step().news);
  const std::uint64_t first = pending_.totals().files;
  EXPECT_LT(first, 100U);
  for (int i = 0; i < 10 && pending_.totals().files < 100; ++i) {
    EXPECT_LE(look.step().pause, milliseconds(1000));
  }
  EXPECT_EQ(pending_.totals().files, 100U);
}

TEST_F(QuietLookTest, WhatCannotBeWatchedIsLookedAtLessAndLessOften) {
  rules_.setRule("/proc", true);
  watcher_.setPlaces([this] { return rules_.places(); });
  watcher_.watch("/proc/tty");
  QuietLook look(scanner_, rules_, watcher_, {never_, milliseconds(0), never_});
  EXPECT_TRUE(look.step().news);
  EXPECT_TRUE(pending_.containsBelow("/proc/tty"));
  QuietLook later(scanner_, rules_, watcher_, {never_, milliseconds(300), never_});
  EXPECT_FALSE(later.step().news) << "not due yet";
  EXPECT_LE(later.step().pause, milliseconds(300));
}

}  // namespace
}  // namespace keldane
