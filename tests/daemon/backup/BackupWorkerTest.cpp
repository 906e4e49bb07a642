#include "daemon/backup/BackupWorker.h"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::TemporaryFolder;

/// Records what it is given, in order, as fast as the test lets it.
struct Engine : BackupEngine {
  explicit Engine(std::shared_ptr<std::vector<std::string>> paths) : order(std::move(paths)) {}
  std::optional<BackupRecord> backUp(const std::string& path, BackupJob& job) override {
    auto record = recording.backUp(path, job);
    whenRead();
    const std::lock_guard guard(mutex);
    order->push_back(path);
    return record;
  }
  RecordingEngine recording;
  std::function<void()> whenRead = [] {};
  std::mutex mutex;
  std::shared_ptr<std::vector<std::string>> order;
};

class BackupWorkerTest : public ::testing::Test {
 protected:
  BackupWorkerTest() {
    for (const char* name : {"a", "b", "c"}) {
      folder_.write(std::string("files/") + name, name);
    }
  }
  void pause() {
    BackupWorker::Modes modes;
    modes.pausedUntil = std::time(nullptr) + 1000;
    worker_.setModes(modes);
  }
  bool waitUntilDone() {
    return eventually([&] { return worker_.progress().pendingFiles == 0 && !worker_.isPendingBelow("/"); });
  }
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }

  TemporaryFolder folder_;
  Store store_{folder_ / "store.sqlite"};
  RuleBook rules_{store_, "/", {}};
  std::shared_ptr<std::vector<std::string>> order_ = std::make_shared<std::vector<std::string>>();
  std::unique_ptr<Engine> madeEngine_ = std::make_unique<Engine>(order_);
  Engine& engine_ = *madeEngine_;
  BackupWorker worker_{store_, rules_, std::move(madeEngine_)};
};

TEST_F(BackupWorkerTest, RecordsSizeDateAndDigestOfWhatIsSelected) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  const std::optional<BackupRecord> record = store_.record(file("a"));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->size, 1U);
  EXPECT_EQ(record->digest, "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb");
  EXPECT_NEAR(record->date, static_cast<double>(std::time(nullptr)), 1000);
  EXPECT_TRUE(waitUntilDone());
  EXPECT_EQ(worker_.progress().pendingBytes, 0U);
}

TEST_F(BackupWorkerTest, DoesNotPreferWhatIsBackedUpAlready) {
  rules_.setRule(file("a"), true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 1; }));
  ASSERT_TRUE(waitUntilDone());
  worker_.prioritize(file("a"));
  EXPECT_FALSE(worker_.isPrioritized(file("a")));
  EXPECT_TRUE(store_.priorities().empty());
}

TEST_F(BackupWorkerTest, CountsDownWithinAFile) {
  folder_.write("files/long", std::string(1000000, 'x'));
  std::vector<BackupWorker::Progress> seen;
  engine_.whenRead = [&] { seen.push_back(worker_.progress()); };
  rules_.setRule(file("long"), true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 1; }));
  worker_.stop();
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].pendingFiles, 1U);
  EXPECT_EQ(seen[0].pendingBytes, 0U);
  EXPECT_EQ(seen[0].currentFile, file("long"));
  EXPECT_TRUE(worker_.progress().currentFile.empty());
}

TEST_F(BackupWorkerTest, CountsWhatIsPendingWhilePaused) {
  pause();
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  EXPECT_EQ(worker_.progress().pendingBytes, 3U);
  EXPECT_TRUE(worker_.isPending(file("a")));
  EXPECT_TRUE(worker_.isPendingBelow(folder_.path()));
  EXPECT_FALSE(worker_.isPendingBelow("/elsewhere"));
  rules_.setRule(file("a"), false);
  worker_.reconsider(file("a"));
  EXPECT_EQ(worker_.progress().pendingFiles, 2U);
  worker_.setModes({});
  EXPECT_TRUE(waitUntilDone());
  EXPECT_FALSE(store_.record(file("a")));
  EXPECT_TRUE(store_.record(file("b")));
}

TEST_F(BackupWorkerTest, TakesPriorityFilesFirstInTheirOrder) {
  pause();
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  worker_.prioritize(file("c"));
  worker_.prioritize(file("b"));
  EXPECT_TRUE(worker_.isPrioritized(file("c")));
  worker_.setModes({});
  ASSERT_TRUE(waitUntilDone());
  EXPECT_EQ(*order_, (std::vector<std::string>{file("c"), file("b"), file("a")}));
  EXPECT_FALSE(worker_.isPrioritized(file("c"))) << "done is done";
  EXPECT_TRUE(store_.priorities().empty());
}

TEST_F(BackupWorkerTest, WithoutAutomaticBackupOnlyPriorityFilesAreTaken) {
  BackupWorker::Modes modes;
  modes.automatic = false;
  worker_.setModes(modes);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  worker_.prioritize(file("b"));
  ASSERT_TRUE(eventually([&] { return store_.record(file("b")).has_value(); }));
  EXPECT_EQ(store_.totals().files, 1U);
}

TEST_F(BackupWorkerTest, FindsWhatChangedWhenToldToLookAgain) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  ASSERT_TRUE(waitUntilDone());
  folder_.write("files/a", "changed");
  worker_.reconsiderAll();
  EXPECT_TRUE(eventually([&] { return store_.record(file("a"))->version == 2; }));
  EXPECT_EQ(store_.record(file("b"))->version, 1U) << "what did not change is not done again";
}

TEST_F(BackupWorkerTest, WhatCannotBeReadIsPassedOver) {
  rules_.setRule(file("none"), true);
  rules_.setRule(file("a"), true);
  std::filesystem::create_symlink(file("a"), file("link"));
  rules_.setRule(file("link"), true);
  worker_.start();
  EXPECT_TRUE(eventually([&] { return store_.record(file("a")).has_value(); }));
  EXPECT_TRUE(waitUntilDone());
  EXPECT_EQ(store_.totals().files, 1U);
}

TEST_F(BackupWorkerTest, RemembersPrioritiesAcrossALife) {
  store_.addPriority(file("c"));
  const BackupWorker again(store_, rules_, std::make_unique<RecordingEngine>());
  EXPECT_TRUE(again.isPrioritized(file("c")));
}

TEST_F(BackupWorkerTest, APlaceThatIsAskedForAThousandTimesIsLookedAtOnce) {
  for (int i = 0; i < 1000; ++i) {
    worker_.reconsider(folder_ / "files");
  }
  EXPECT_EQ(worker_.progress().placesToScan, 1U);
  EXPECT_TRUE(worker_.isPendingBelow(folder_ / "files"));
  EXPECT_TRUE(worker_.isPendingBelow("/"));
  EXPECT_FALSE(worker_.isPendingBelow(folder_ / "file"));
}

}  // namespace
}  // namespace keldane
