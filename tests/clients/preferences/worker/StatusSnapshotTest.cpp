#include "clients/preferences/worker/StatusSnapshot.h"

#include <gtest/gtest.h>

#include "tests/clients/preferences/worker/DaemonFixture.h"

namespace keldane {
namespace {

using std::chrono::seconds;

class StatusSnapshotTest : public testing::DaemonFixture {
 protected:
  StatusSnapshotTest() {
    listen();
    daemon_->answer("userEmail", "someone@example.org");
    daemon_->answer("serverURL", "https://backup.example.org");
    daemon_->answer("computerNumber", 42);
    daemon_->answer("automaticMode", true);
    daemon_->answer("pausedMinutes", 7);
    state_.setBundle(bundle_.bundle());
    state_.disableConnectTimer();
  }
  ~StatusSnapshotTest() override { state_.onEnd(); }

  StatusSnapshot snapshotOf(const PropertyList::Entries& entries) {
    daemon_->answer("daemonState", PropertyList::dictionary(entries));
    state_.onBegin();
    state_.updateDaemonState();
    return statusSnapshot(state_, progress_, askForAccount(state_));
  }

  BackupState state_;
  BackupProgress progress_;
};

TEST_F(StatusSnapshotTest, HasWhatTheDaemonTells) {
  const StatusSnapshot snapshot = snapshotOf({{"statusString", "Backing\nup"},
                                              {"currentBackupFile", "/home/f"},
                                              {"backedUpFileCount", 3},
                                              {"backedupFileSize", 1 << 20},
                                              {"pendingFileCount", 2},
                                              {"pendingFileSize", 100},
                                              {"paused", PropertyList::boolean(true)},
                                              {"lowerPriorityMode", PropertyList::boolean(true)},
                                              {"isQuotaLimited", PropertyList::boolean(true)},
                                              {"isOverQuota", PropertyList::boolean(true)},
                                              {"quotaMB", 4}});
  EXPECT_TRUE(snapshot.connected);
  EXPECT_EQ(snapshot.status, "Backing\\nup");
  EXPECT_EQ(snapshot.currentFile, "/home/f");
  EXPECT_EQ(snapshot.backedUpFiles, 3U);
  EXPECT_EQ(snapshot.backedUpBytes, 1U << 20);
  EXPECT_EQ(snapshot.pendingFiles, 2U);
  EXPECT_EQ(snapshot.pendingBytes, 100U);
  EXPECT_TRUE(snapshot.paused);
  EXPECT_EQ(snapshot.pausedMinutes, 7U);
  EXPECT_TRUE(snapshot.automatic);
  EXPECT_TRUE(snapshot.lowPriority);
  EXPECT_TRUE(snapshot.overQuota);
  EXPECT_EQ(snapshot.quotaBytes, 4U << 20);
  EXPECT_EQ(snapshot.quotaFraction(), 0.25);
  EXPECT_EQ(snapshot.account.userEmail, "someone@example.org");
  EXPECT_EQ(snapshot.account.serverURL, "https://backup.example.org");
  EXPECT_EQ(snapshot.account.computerNumber, "42");
}

TEST_F(StatusSnapshotTest, WhatIsNotToldIsAbsent) {
  daemon_->answer("computerNumber", PropertyList(0));
  const StatusSnapshot snapshot = snapshotOf({{"other", 1}});
  EXPECT_TRUE(snapshot.connected);
  EXPECT_EQ(snapshot.status, "");
  EXPECT_EQ(snapshot.backedUpFiles, std::nullopt);
  EXPECT_EQ(snapshot.backedUpBytes, std::nullopt);
  EXPECT_EQ(snapshot.timeLeft, std::nullopt);
  EXPECT_EQ(snapshot.account.computerNumber, "");
}

TEST_F(StatusSnapshotTest, HasRateAndTimeOnceSomethingWasDone) {
  const BackupProgress::Clock::time_point start{};
  progress_.update(4, 400, start);
  progress_.update(2, 200, start + seconds(2));
  const StatusSnapshot snapshot = snapshotOf({{"pendingFileCount", 2}, {"pendingFileSize", 200}});
  EXPECT_EQ(snapshot.fraction, 0.5);
  EXPECT_EQ(snapshot.bytesPerSecond, 100);
  EXPECT_EQ(snapshot.timeLeft, seconds(2));
}

TEST_F(StatusSnapshotTest, TheAccountIsRememberedWhileTheDaemonIsAway) {
  snapshotOf({{"isQuotaLimited", PropertyList::boolean(true)}});
  state_.onEnd();
  const StatusSnapshot snapshot = statusSnapshot(state_, progress_, askForAccount(state_));
  EXPECT_FALSE(snapshot.connected);
  EXPECT_EQ(snapshot.account.userEmail, "someone@example.org");
  EXPECT_EQ(snapshot.account.serverURL, "https://backup.example.org");
  EXPECT_EQ(snapshot.account.computerNumber, "42");
  EXPECT_TRUE(snapshot.quotaLimited);
  EXPECT_EQ(snapshot.status, "");
}

TEST(QuotaFraction, IsFullForNothingAndNeverMoreThanFull) {
  StatusSnapshot snapshot;
  EXPECT_EQ(snapshot.quotaFraction(), 1);
  snapshot.backedUpBytes = 300;
  snapshot.quotaBytes = 200;
  EXPECT_EQ(snapshot.quotaFraction(), 1);
  snapshot.backedUpBytes.reset();
  EXPECT_EQ(snapshot.quotaFraction(), 0);
}

}  // namespace
}  // namespace keldane
