#include "client-state/BackupState.h"

#include <gtest/gtest.h>

#include "log/KeldaneLog.h"
#include "tests/client-state/BackupStateFixture.h"
#include "tests/support/LogCapture.h"
#include "tests/support/process/Footprint.h"

namespace keldane {
namespace {

using testing::BackupStateTest;
using testing::ClientBundle;
using testing::eventuallyRunning;
using testing::FakeDaemon;
using testing::kConnectionChanged;
using testing::kStateChanged;

TEST(BackupStateConstants, ReadAsTheyAreNamedOrAreThePreferenceKeys) {
  EXPECT_STREQ(KeldaneBackupStateChangedNotification, kStateChanged);
  EXPECT_STREQ(KeldaneBackupStateConnectionChangedNotification, kConnectionChanged);
  EXPECT_STREQ(LAST_ACCT_EMAIL_STRING, "lastAcctEmailStr");
  EXPECT_STREQ(LAST_SERVER_URL_STRING, "lastServerURLStr");
  EXPECT_STREQ(LAST_COMPUTER_NUM_INT, "lastComputerNumberInt");
  EXPECT_STREQ(LAST_SKIN_ID_STRING, "lastSkinIdStr");
}

TEST_F(BackupStateTest, IsNotConnectedBeforeItBeginsAndAfterItEnds) {
  EXPECT_FALSE(state_.connected());
  EXPECT_FALSE(state_.daemonReady());
  EXPECT_EQ(state_.proxy(), nullptr);
  connect();
  EXPECT_TRUE(state_.daemonReady());
  EXPECT_NE(state_.proxy(), nullptr);
  state_.onEnd();
  EXPECT_FALSE(state_.connected());
  EXPECT_FALSE(state_.daemonReady());
  EXPECT_EQ(state_.proxy(), nullptr);
}

TEST_F(BackupStateTest, TellsOfTheConnectionBeforeOnBeginReturnsAndOnceWhenItEnds) {
  connect();
  EXPECT_EQ(connections_, (std::vector<bool>{true}));
  state_.onEnd();
  EXPECT_EQ(connections_, (std::vector<bool>{true, false}));
  EXPECT_TRUE(daemon_->waitForClients(0));
}

TEST_F(BackupStateTest, LogsItsBeginning) {
  const testing::LogCapture log;
  gLoggingEnabled = true;
  state_.onBegin();
  gLoggingEnabled = false;
  EXPECT_EQ(log.lines().front(), "BackupState:onBegin - opening connection");
}

TEST_F(BackupStateTest, PassesOnThatNoRetriesAreWanted) {
  state_.onBegin();
  EXPECT_EQ(timers(), 0U);
  BackupState other;
  other.setBundle(bundle_.bundle());
  other.onBegin();
  EXPECT_EQ(timers(), 1U);
  other.onEnd();
  EXPECT_EQ(timers(), 0U);
}

TEST_F(BackupStateTest, TellsOfTheEndAlsoWhenItNeverConnected) {
  state_.onBegin();
  EXPECT_EQ(state_.proxy(), nullptr) << "the controller has one, but of no use";
  state_.onEnd();
  EXPECT_EQ(connections_, (std::vector<bool>{false}));
}

TEST_F(BackupStateTest, EndsWithoutABeginningSilently) {
  state_.onEnd();
  EXPECT_TRUE(connections_.empty());
}

TEST_F(BackupStateTest, TellsOfALostConnectionAndOfTheNextOne) {
  connect();
  daemon_->hangUp();
  EXPECT_TRUE(eventuallyRunning([&] { return connections_.size() == 2; }));
  EXPECT_TRUE(eventuallyRunning([&] { return connections_.size() == 3; }));
  EXPECT_EQ(connections_, (std::vector<bool>{true, false, true}));
}

TEST_F(BackupStateTest, BeginsAgainAfterItsEnd) {
  connect();
  daemon_->answer("daemonState", PropertyList::dictionary({{"quotaMB", 2048}}));
  state_.updateDaemonState();
  state_.onEnd();
  EXPECT_EQ(state_.quotaMB(), 2048U) << "the last values stay readable";
  state_.onBegin();
  EXPECT_TRUE(state_.connected());
  EXPECT_EQ(connections_, (std::vector<bool>{true, false, true}));
}

TEST_F(BackupStateTest, LeavesNoObserverAndNoTimer) {
  const std::size_t observers = NotificationCenter::defaultCenter().observerCount();
  state_.setWantsStateChangedNotifications();
  connect();
  EXPECT_EQ(NotificationCenter::defaultCenter().observerCount(), observers + 1);
  EXPECT_EQ(timers(), 1U);
  state_.onEnd();
  EXPECT_EQ(NotificationCenter::defaultCenter().observerCount(), observers);
  EXPECT_EQ(timers(), 0U);
}

TEST(BackupStateByDefault, AsksTheProcesssMainBundle) {
  const ClientBundle bundle;
  FakeDaemon daemon(bundle.daemonPath());
  Bundle::setMainBundle(bundle.bundle());
  BackupState state;
  state.disableConnectTimer();
  state.onBegin();
  EXPECT_TRUE(state.connected());
  state.onEnd();
  Bundle::setMainBundle(nullptr);
}

class ManyConnections : public BackupStateTest,
                        public ::testing::WithParamInterface<testing::Labelled<bool>> {};

TEST_P(ManyConnections, LeaveNothingBehind) {
  state_.setWantsStateChangedNotifications();
  if (GetParam().value) {
    listen();
  }
  // The daemon runs in this process, so its connections would count.
  const auto hangUp = [&] {
    if (daemon_) {
      daemon_->hangUp();
    }
    return true;
  };
  const auto beginAndEnd = [&] {
    state_.onBegin();
    ASSERT_EQ(state_.connected(), GetParam().value);
    state_.onEnd();
    hangUp();
  };
  const std::ptrdiff_t threads = testing::countOf("task");
  beginAndEnd();  // makes everything that is made once in a process
  ASSERT_TRUE(testing::eventually([&] { return hangUp() && testing::countOf("task") == threads; }));
  const testing::Footprint before;
  for (int i = 0; i < 1000; ++i) {
    beginAndEnd();
  }
  EXPECT_TRUE(testing::eventually([&] { return hangUp() && testing::Footprint() == before; }))
      << testing::Footprint() << "\nbefore: " << before;
}

const testing::Labelled<bool> kWithAndWithout[] = {{"WithADaemon", true}, {"WithoutADaemon", false}};

INSTANTIATE_TEST_SUITE_P(BackupState, ManyConnections, ::testing::ValuesIn(kWithAndWithout),
                         testing::byLabel);

TEST_F(BackupStateTest, DoesNotPollUnlessAskedTo) {
  connect();
  EXPECT_EQ(timers(), 0U);
  EXPECT_TRUE(daemon_->calls().empty());
}

TEST_F(BackupStateTest, PollsAtOnceAndThenEveryTwoSeconds) {
  listen();
  daemon_->answer("daemonState", PropertyList::dictionary({{"paused", true}}));
  state_.setWantsStateChangedNotifications();
  const auto start = std::chrono::steady_clock::now();
  state_.onBegin();
  EXPECT_EQ(daemon_->count("daemonState"), 1U);
  EXPECT_TRUE(state_.paused());
  EXPECT_TRUE(eventuallyRunning([&] { return daemon_->count("daemonState") == 2; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
  EXPECT_EQ(states_.size(), 1U) << "equal states are told once";
  daemon_->answer("daemonState", PropertyList::dictionary({{"paused", false}}));
  EXPECT_TRUE(eventuallyRunning([&] { return states_.size() == 2; }));
  EXPECT_FALSE(state_.paused());
}

TEST_F(BackupStateTest, TellsOfTheConnectionBeforeItPollsAndStopsThePollBeforeItTellsOfTheEnd) {
  listen();
  state_.setWantsStateChangedNotifications();
  std::vector<std::size_t> seen;
  NotificationCenter::defaultCenter().addObserver(&seen, kConnectionChanged, &state_,
                                                  [&](const Notification&) {
                                                    seen.push_back(daemon_->count("daemonState"));
                                                    seen.push_back(timers());
                                                  });
  state_.onBegin();
  EXPECT_EQ(timers(), 1U);
  daemon_->hangUp();
  EXPECT_TRUE(eventuallyRunning([&] { return connections_.size() == 2; }));
  NotificationCenter::defaultCenter().removeObserver(&seen);
  EXPECT_EQ(seen, (std::vector<std::size_t>{0, 0, 1, 0}));
}

TEST_F(BackupStateTest, AnObserverThatEndsItLeavesNoPollBehind) {
  listen();
  state_.setWantsStateChangedNotifications();
  NotificationCenter::defaultCenter().addObserver(
      &state_, kConnectionChanged, &state_, [&](const Notification&) {
        NotificationCenter::defaultCenter().removeObserver(&state_, kConnectionChanged);
        state_.onEnd();
      });
  state_.onBegin();
  EXPECT_FALSE(state_.connected());
  EXPECT_EQ(timers(), 0U);
  EXPECT_EQ(daemon_->count("daemonState"), 0U);
}

TEST_F(BackupStateTest, UpdatesNothingWhileDisconnected) {
  state_.updateDaemonState();
  EXPECT_TRUE(states_.empty());
  EXPECT_TRUE(state_.daemonState().isAbsent());
}

TEST_F(BackupStateTest, TellsOfAChangedStateOnceWithTheStateAsInformation) {
  connect();
  const PropertyList first = PropertyList::dictionary({{"a", 1}, {"b", "x"}});
  daemon_->answer("daemonState", first);
  state_.updateDaemonState();
  daemon_->answer("daemonState", PropertyList::dictionary({{"b", "x"}, {"a", 1}}));
  state_.updateDaemonState();
  EXPECT_EQ(states_, (std::vector<PropertyList>{first}));
  EXPECT_EQ(state_.daemonState(), first);
}

TEST_F(BackupStateTest, TellsOfAnAbsentStateEachTime) {
  connect();
  daemon_->answer("daemonState", PropertyList::dictionary({{"paused", true}}));
  state_.updateDaemonState();
  daemon_->answer("daemonState", PropertyList());
  state_.updateDaemonState();
  EXPECT_FALSE(state_.paused());
  state_.updateDaemonState();
  ASSERT_EQ(states_.size(), 3U);
  EXPECT_TRUE(states_[1].isAbsent());
  EXPECT_TRUE(states_[2].isAbsent());
}

TEST_F(BackupStateTest, LogsTheNewStateWhenTheLogIsOn) {
  const testing::LogCapture log;
  connect();
  daemon_->answer("daemonState", PropertyList::dictionary({{"a", 1}}));
  gLoggingEnabled = true;
  state_.updateDaemonState();
  state_.updateDaemonState();
  gLoggingEnabled = false;
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"daemonState: " + state_.daemonState().description()}));
  daemon_->answer("daemonState", PropertyList::dictionary({{"a", 2}}));
  state_.updateDaemonState();
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(BackupStateTest, AStateOfTheWrongKindReadsAsZeroAndAbsent) {
  connect();
  for (const PropertyList& answer : {PropertyList("text"), PropertyList(7), PropertyList::array({1, 2})}) {
    daemon_->answer("daemonState", answer);
    state_.updateDaemonState();
    EXPECT_EQ(state_.quotaMB(), 0U);
    EXPECT_FALSE(state_.paused());
    EXPECT_TRUE(state_.statusString().isAbsent());
  }
}

TEST_F(BackupStateTest, SurvivesADaemonThatDiesWhileItIsAsked) {
  connect();
  diesWhenAsked("daemonState");
  state_.updateDaemonState();
  EXPECT_TRUE(state_.daemonState().isAbsent());
  EXPECT_TRUE(states_.empty()) << "nothing was learnt";
  EXPECT_TRUE(eventuallyRunning([&] { return connections_.size() >= 2; }));
}

// Tests of the values from the last state.

class StateAccessors : public BackupStateTest {
 protected:
  void given(const PropertyList::Entries& entries) {
    if (!daemon_) {
      connect();
    }
    daemon_->answer("daemonState", PropertyList::dictionary(entries));
    state_.updateDaemonState();
  }
};

TEST_F(StateAccessors, AreZeroOrAbsentBeforeTheFirstStateAndForMissingKeys) {
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_EQ(state_.backedUpFileCount(), 0U);
    EXPECT_FALSE(state_.backedUpFileCountAvailable());
    EXPECT_EQ(state_.backedupFileSize(), 0U);
    EXPECT_FALSE(state_.backedupFileSizeAvailable());
    EXPECT_EQ(state_.backupState(), 0);
    EXPECT_TRUE(state_.currentBackupFile().isAbsent());
    EXPECT_TRUE(state_.currentRestoreFile().isAbsent());
    EXPECT_EQ(state_.currentRestoreJob(), 0U);
    EXPECT_FALSE(state_.isBackupNeeded());
    EXPECT_FALSE(state_.lowerPriorityMode());
    EXPECT_FALSE(state_.paused());
    EXPECT_EQ(state_.pendingFileCount(), 0U);
    EXPECT_FALSE(state_.pendingFileCountAvailable());
    EXPECT_EQ(state_.pendingFileSize(), 0U);
    EXPECT_FALSE(state_.pendingFileSizeAvailable());
    EXPECT_FALSE(state_.recoverMode());
    EXPECT_EQ(state_.serviceState(), 0);
    EXPECT_TRUE(state_.statusString().isAbsent());
    EXPECT_FALSE(state_.isOverQuota());
    EXPECT_EQ(state_.quotaMB(), 0U);
    EXPECT_EQ(state_.quotaGB(), 0U);
    EXPECT_EQ(state_.getBackupControl(), 0U);
    EXPECT_FALSE(state_.isQuotaLimited());
    given({{"unrelated", 1}});
  }
}

TEST_F(StateAccessors, ReadEachItsOwnKey) {
  given({{"backedUpFileCount", 1},
         {"backedupFileSize", std::uint64_t{1} << 40},
         {"backupState", 3},
         {"currentBackupFile", "/a"},
         {"currentRestoreFile", "/b"},
         {"currentRestoreJob", 6},
         {"isBackupNeeded", true},
         {"lowerPriorityMode", true},
         {"paused", true},
         {"pendingFileCount", 10},
         {"pendingFileSize", UINT64_MAX},
         {"recoverMode", true},
         {"serviceState", 13},
         {"statusString", "Working"},
         {"isOverQuota", true},
         {"quotaMB", 2048},
         {"backupControlFlags", 0x80000001},
         {"isQuotaLimited", true}});
  EXPECT_EQ(state_.backedUpFileCount(), 1U);
  EXPECT_TRUE(state_.backedUpFileCountAvailable());
  EXPECT_EQ(state_.backedupFileSize(), std::uint64_t{1} << 40);
  EXPECT_TRUE(state_.backedupFileSizeAvailable());
  EXPECT_EQ(state_.backupState(), 3);
  EXPECT_EQ(state_.currentBackupFile(), PropertyList("/a"));
  EXPECT_EQ(state_.currentRestoreFile(), PropertyList("/b"));
  EXPECT_EQ(state_.currentRestoreJob(), 6U);
  EXPECT_TRUE(state_.isBackupNeeded());
  EXPECT_TRUE(state_.lowerPriorityMode());
  EXPECT_TRUE(state_.paused());
  EXPECT_EQ(state_.pendingFileCount(), 10U);
  EXPECT_TRUE(state_.pendingFileCountAvailable());
  EXPECT_EQ(state_.pendingFileSize(), UINT64_MAX);
  EXPECT_TRUE(state_.pendingFileSizeAvailable());
  EXPECT_TRUE(state_.recoverMode());
  EXPECT_EQ(state_.serviceState(), 13);
  EXPECT_EQ(state_.statusString(), PropertyList("Working"));
  EXPECT_TRUE(state_.isOverQuota());
  EXPECT_EQ(state_.quotaMB(), 2048U);
  EXPECT_EQ(state_.quotaGB(), 2U);
  EXPECT_EQ(state_.getBackupControl(), 0x80000001U);
  EXPECT_TRUE(state_.isQuotaLimited());
}

TEST_F(StateAccessors, TellTheIrregularCapitalsApart) {
  given({{"backedupFileCount", 1}, {"backedUpFileSize", 2}});
  EXPECT_FALSE(state_.backedUpFileCountAvailable());
  EXPECT_FALSE(state_.backedupFileSizeAvailable());
}

TEST_F(StateAccessors, GiveThirtyTwoBitsOfWhatIsLarger) {
  given({{"backupState", 0xFFFFFFFF}, {"serviceState", -2}, {"quotaMB", (std::uint64_t{1} << 32) + 7}});
  EXPECT_EQ(state_.backupState(), -1);
  EXPECT_EQ(state_.serviceState(), -2);
  EXPECT_EQ(state_.quotaMB(), 7U);
}

TEST_F(StateAccessors, AZeroIsAvailable) {
  given({{"backedUpFileCount", 0}, {"backedupFileSize", 0}, {"pendingFileCount", 0}, {"pendingFileSize", 0}});
  EXPECT_TRUE(state_.backedUpFileCountAvailable());
  EXPECT_TRUE(state_.backedupFileSizeAvailable());
  EXPECT_TRUE(state_.pendingFileCountAvailable());
  EXPECT_TRUE(state_.pendingFileSizeAvailable());
}

TEST_F(StateAccessors, GiveWholeGigabytes) {
  const std::pair<std::uint32_t, std::uint32_t> rows[] = {
      {0, 0}, {1023, 0}, {1024, 1}, {1536, 1}, {UINT32_MAX, 4194303}};
  for (const auto& [megabytes, gigabytes] : rows) {
    given({{"quotaMB", megabytes}});
    EXPECT_EQ(state_.quotaGB(), gigabytes) << megabytes;
  }
}
}  // namespace
}  // namespace keldane
