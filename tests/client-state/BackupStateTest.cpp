#include "client-state/BackupState.h"

#include <gtest/gtest.h>

#include "client-state/DefaultsDB.h"
#include "log/KeldaneLog.h"
#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Exceptions.h"
#include "platform/preferences/Preferences.h"
#include "tests/support/FakeDaemon.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryBundle.h"

namespace keldane {
namespace {

using testing::eventuallyRunning;
using testing::FakeDaemon;
using testing::LogCapture;
using testing::TemporaryBundle;
using Call = testing::DaemonCall;

class BackupStateTest : public ::testing::Test {
 protected:
  BackupStateTest() {
    setenv("XDG_CONFIG_HOME", configuration_.path().c_str(), 1);
    Preferences::forget();
    state_.setBundle(bundle_.bundle());
    state_.disableConnectTimer();
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, KeldaneBackupStateConnectionChangedNotification, &state_,
                       [this](const Notification&) { connections_.push_back(state_.connected()); });
    center.addObserver(
        this, KeldaneBackupStateChangedNotification, &state_,
        [this](const Notification& notification) { states_.push_back(notification.userInfo); });
  }
  ~BackupStateTest() override {
    NotificationCenter::defaultCenter().removeObserver(this);
    state_.onEnd();
    EXPECT_TRUE(testing::eventually([] { return RunLoop::main().load() == RunLoop::Load{}; }));
    EXPECT_EQ(NotificationCenter::defaultCenter().observerCount(), 0U);
  }
  void setState(PropertyList::Entries entries) {
    daemon_->answer("daemonState", PropertyList::dictionary(std::move(entries)));
    state_.updateDaemonState();
  }
  std::filesystem::file_time_type written() const {
    return std::filesystem::last_write_time(configuration_ / "com.keldane.preferences.plist");
  }

  LogCapture log_;
  testing::TemporaryFolder configuration_;
  testing::TemporaryFolder place_;
  const std::string socketPath_ = place_ / "daemon.sock";
  std::unique_ptr<FakeDaemon> daemon_ = std::make_unique<FakeDaemon>(socketPath_);
  TemporaryBundle bundle_{TemporaryBundle::daemonPath(socketPath_)};
  BackupState state_;
  std::vector<bool> connections_;
  std::vector<PropertyList> states_;
};

TEST_F(BackupStateTest, TheNotificationsTextsEqualTheirNames) {
  EXPECT_STREQ(KeldaneBackupStateChangedNotification, "KeldaneBackupStateChangedNotification");
  EXPECT_STREQ(KeldaneBackupStateConnectionChangedNotification,
               "KeldaneBackupStateConnectionChangedNotification");
  EXPECT_STREQ(KeldaneConnectionReadyChangedNotification, "KeldaneConnectionReadyChangedNotification");
  EXPECT_STREQ(LAST_ACCT_EMAIL_STRING, "lastAcctEmailStr");
  EXPECT_STREQ(LAST_SERVER_URL_STRING, "lastServerURLStr");
  EXPECT_STREQ(LAST_COMPUTER_NUM_INT, "lastComputerNumberInt");
  EXPECT_STREQ(LAST_SKIN_ID_STRING, "lastSkinIdStr");
}

TEST_F(BackupStateTest, IsConnectedBetweenBeginAndEnd) {
  EXPECT_FALSE(state_.connected());
  EXPECT_FALSE(state_.daemonReady());
  EXPECT_EQ(state_.proxy(), nullptr);
  state_.onBegin();
  EXPECT_TRUE(state_.connected());
  EXPECT_TRUE(state_.daemonReady());
  EXPECT_NE(state_.proxy(), nullptr);
  state_.onEnd();
  EXPECT_FALSE(state_.connected());
  EXPECT_FALSE(state_.daemonReady());
  EXPECT_EQ(connections_, (std::vector<bool>{true, false})) << "the end is told exactly once";
  state_.onBegin();
  EXPECT_TRUE(state_.connected());
}

TEST_F(BackupStateTest, WithoutADaemonEverythingIsNothing) {
  daemon_.reset();
  state_.onBegin();
  EXPECT_FALSE(state_.connected());
  EXPECT_EQ(state_.proxy(), nullptr);
  EXPECT_FALSE(state_.automaticMode());
  EXPECT_EQ(state_.pausedMinutes(), 0U);
  EXPECT_TRUE(state_.dictionaryForPath("/x").isAbsent());
  EXPECT_TRUE(state_.marketingMessage().isAbsent());
  EXPECT_EQ(state_.intValueForProfileKey("k"), 0U);
  state_.addFileToBackup("/x");
  state_.setBackupControl(5);
  state_.updateDaemonState();
  EXPECT_TRUE(states_.empty());
}

TEST_F(BackupStateTest, AccessorsReadTheKeptState) {
  state_.onBegin();
  setState({{"backedUpFileCount", 5U},
            {"backedupFileSize", std::uint64_t{1} << 40},
            {"backupState", 3U},
            {"currentBackupFile", "/a"},
            {"currentRestoreFile", "/b"},
            {"currentRestoreJob", 7U},
            {"isBackupNeeded", true},
            {"lowerPriorityMode", true},
            {"paused", true},
            {"pendingFileCount", 9U},
            {"pendingFileSize", std::uint64_t{1} << 41},
            {"recoverMode", true},
            {"serviceState", 4294967295U},
            {"statusString", "busy"},
            {"isOverQuota", true},
            {"quotaMB", 1536U},
            {"backupControlFlags", 12U}});
  EXPECT_EQ(state_.backedUpFileCount(), 5U);
  EXPECT_TRUE(state_.backedUpFileCountAvailable());
  EXPECT_EQ(state_.backedupFileSize(), std::uint64_t{1} << 40);
  EXPECT_TRUE(state_.backedupFileSizeAvailable());
  EXPECT_EQ(state_.backupState(), 3);
  EXPECT_EQ(state_.currentBackupFile().string(), "/a");
  EXPECT_EQ(state_.currentRestoreFile().string(), "/b");
  EXPECT_EQ(state_.currentRestoreJob(), 7U);
  EXPECT_TRUE(state_.isBackupNeeded());
  EXPECT_TRUE(state_.lowerPriorityMode());
  EXPECT_TRUE(state_.paused());
  EXPECT_EQ(state_.pendingFileCount(), 9U);
  EXPECT_TRUE(state_.pendingFileCountAvailable());
  EXPECT_EQ(state_.pendingFileSize(), std::uint64_t{1} << 41);
  EXPECT_TRUE(state_.pendingFileSizeAvailable());
  EXPECT_TRUE(state_.recoverMode());
  EXPECT_EQ(state_.serviceState(), -1);
  EXPECT_EQ(state_.statusString().string(), "busy");
  EXPECT_TRUE(state_.isOverQuota());
  EXPECT_EQ(state_.quotaMB(), 1536U);
  EXPECT_EQ(state_.getBackupControl(), 12U);
  daemon_.reset();
  EXPECT_TRUE(eventuallyRunning([&] { return !state_.connected(); }));
  EXPECT_EQ(state_.backedUpFileCount(), 5U) << "the last state stays readable";
}

TEST_F(BackupStateTest, WithoutAStateAccessorsAreZero) {
  EXPECT_EQ(state_.backedUpFileCount(), 0U);
  EXPECT_FALSE(state_.backedUpFileCountAvailable());
  EXPECT_FALSE(state_.pendingFileSizeAvailable());
  EXPECT_TRUE(state_.statusString().isAbsent());
  EXPECT_FALSE(state_.paused());
}

TEST_F(BackupStateTest, GigabytesAreWhole) {
  state_.onBegin();
  const std::pair<std::uint32_t, std::uint32_t> cases[] = {
      {0, 0}, {1023, 0}, {1024, 1}, {1536, 1}, {4294967295U, 4194303}};
  for (const auto& [megabytes, gigabytes] : cases) {
    setState({{"quotaMB", megabytes}});
    EXPECT_EQ(state_.quotaGB(), gigabytes);
  }
}

TEST_F(BackupStateTest, AnEqualStateIsToldOnce) {
  state_.onBegin();
  setState({{"paused", true}});
  setState({{"paused", true}});
  EXPECT_EQ(states_.size(), 1U);
  setState({{"paused", false}});
  ASSERT_EQ(states_.size(), 2U);
  EXPECT_FALSE(states_[1]["paused"].boolValue());
}

TEST_F(BackupStateTest, AStateOfNothingIsToldEachTime) {
  state_.onBegin();
  state_.updateDaemonState();
  state_.updateDaemonState();
  ASSERT_EQ(states_.size(), 2U);
  EXPECT_TRUE(states_[1].isAbsent());
}

TEST_F(BackupStateTest, TheStateIsLoggedWhenTheLogIsOn) {
  state_.onBegin();
  setState({{"a", 1}});
  EXPECT_FALSE(log_.hasPart("daemonState: "));
  gLoggingEnabled = true;
  setState({{"a", 2}});
  EXPECT_TRUE(log_.has("daemonState: {\n    a = 2;\n}"));
}

TEST_F(BackupStateTest, PollsWhileConnectedWhenAsked) {
  daemon_->answer("daemonState", PropertyList::dictionary({{"n", 1}}));
  state_.setWantsStateChangedNotifications();
  state_.onBegin();
  EXPECT_EQ(states_.size(), 1U) << "the first poll does not wait";
  EXPECT_EQ(RunLoop::main().load().timers, 1U);
  daemon_->answer("daemonState", PropertyList::dictionary({{"n", 2}}));
  EXPECT_TRUE(eventuallyRunning([&] { return states_.size() == 2; }));
  state_.onEnd();
  EXPECT_EQ(RunLoop::main().load().timers, 0U);
}

TEST_F(BackupStateTest, DoesNotPollUnasked) {
  state_.onBegin();
  EXPECT_EQ(RunLoop::main().load().timers, 0U);
  EXPECT_TRUE(daemon_->calls().empty());
}

TEST_F(BackupStateTest, AccountValuesAreRememberedWhenTheyChange) {
  daemon_->answer("serverURL", "https://one");
  state_.onBegin();
  EXPECT_EQ(state_.serverURL().string(), "https://one");
  EXPECT_EQ(DefaultsDB::stringProperty("lastServerURLStr", true), PropertyList("https://one"));
  const auto first = written();
  EXPECT_EQ(state_.serverURL().string(), "https://one");
  EXPECT_EQ(written(), first) << "nothing changed, nothing is written";
  daemon_->answer("serverURL", "https://two");
  EXPECT_EQ(state_.serverURL().string(), "https://two");
  EXPECT_NE(written(), first);
  daemon_.reset();
  EXPECT_TRUE(eventuallyRunning([&] { return !state_.connected(); }));
  EXPECT_EQ(state_.serverURL().string(), "https://two");
}

TEST_F(BackupStateTest, AccountValuesAreNeverAbsent) {
  EXPECT_TRUE(state_.userEmail().identical(""));
  EXPECT_TRUE(state_.skinId().identical(""));
  EXPECT_TRUE(state_.computerNumber().identical(0));
  state_.onBegin();
  EXPECT_TRUE(state_.userEmail().identical("")) << "nothing from the daemon is \"\"";
  EXPECT_TRUE(state_.computerNumber().identical(0));
  EXPECT_EQ(DefaultsDB::stringProperty("lastAcctEmailStr", true), PropertyList(""));
}

TEST_F(BackupStateTest, TheSkinIsAProfileValue) {
  daemon_->answer("stringValueForProfileKey:", "blue");
  state_.onBegin();
  EXPECT_EQ(state_.skinId().string(), "blue");
  EXPECT_EQ(daemon_->calls(), (std::vector<Call>{{"stringValueForProfileKey:", {"SkinId"}}}));
  EXPECT_EQ(DefaultsDB::stringProperty("lastSkinIdStr"), PropertyList("blue"));
}

TEST_F(BackupStateTest, TheComputerNumberIsRememberedAsAnInteger) {
  EXPECT_EQ(state_.computerNumber().intValue(), 0);
  DefaultsDB::setIntProperty(7, "lastComputerNumberInt");
  EXPECT_EQ(state_.computerNumber().intValue(), 7);
  daemon_->answer("computerNumber", 12);
  state_.onBegin();
  EXPECT_EQ(state_.computerNumber().intValue(), 12);
  EXPECT_EQ(DefaultsDB::intProperty("lastComputerNumberInt", true), 12);
}

TEST_F(BackupStateTest, TheQuotaFlagIsRememberedAndOnlyExactlyOneIsYes) {
  EXPECT_FALSE(state_.isQuotaLimited());
  DefaultsDB::setIntProperty(2, "isQuotaLimited");
  EXPECT_FALSE(state_.isQuotaLimited());
  DefaultsDB::setIntProperty(1, "isQuotaLimited");
  EXPECT_TRUE(state_.isQuotaLimited());
  state_.onBegin();
  EXPECT_FALSE(state_.isQuotaLimited()) << "the live state has no such key";
  EXPECT_EQ(DefaultsDB::intProperty("isQuotaLimited", true), 0);
  setState({{"isQuotaLimited", true}});
  EXPECT_TRUE(state_.isQuotaLimited());
  EXPECT_EQ(DefaultsDB::intProperty("isQuotaLimited", true), 1);
}

TEST_F(BackupStateTest, CommandsAreSentAsTheyAre) {
  state_.onBegin();
  state_.setLowerPriorityMode(true);
  state_.setAutomaticMode(false);
  state_.setPausedMinutes(-1);
  state_.setRecoverMode(true);
  state_.setAccountOverQuotaTestingFlag(true);
  state_.clearAccountOverQuotaTestingFlag();
  state_.setValueForProfileKey("k", PropertyList("v"));
  state_.addFileToBackup("/a");
  state_.removeFileFromBackup("/b");
  state_.setPriorityBackup("/c");
  state_.setFileTypeToggle(".txt", 6);
  state_.setAlertHandler();
  state_.endAlertHandler();
  state_.setStateHandler();
  state_.endStateHandler();
  state_.terminateDaemon();
  const std::vector<Call> expected = {{"setLowerPriorityMode:", {1}},
                                      {"setAutomaticMode:", {0}},
                                      {"setPausedMinutes:", {4294967295U}},
                                      {"setRecoverMode:", {1}},
                                      {"setAccountOverQuotaTestingFlag:", {1}},
                                      {"clearAccountOverQuotaTestingFlag", {}},
                                      {"setValueForProfileKey:withString:", {"k", "v"}},
                                      {"addFileToBackup:", {"/a"}},
                                      {"removeFileFromBackup:", {"/b"}},
                                      {"setPriorityBackup:", {"/c"}},
                                      {"setFileTypeToggle:toggle:", {".txt", 6}},
                                      {"setAlertHandler", {}},
                                      {"endAlertHandler", {}},
                                      {"setStateHandler", {}},
                                      {"endStateHandler", {}},
                                      {"terminate", {}}};
  ASSERT_TRUE(daemon_->waitForCalls(expected.size()));
  EXPECT_EQ(daemon_->calls(), expected);
}

TEST_F(BackupStateTest, QuestionsAreAnsweredByTheDaemon) {
  const PropertyList node = PropertyList::dictionary({{"fileName", "x"}});
  daemon_->answer("automaticMode", 1);
  daemon_->answer("pausedMinutes", 30);
  daemon_->answer("marketingMessage", "buy");
  daemon_->answer("dictionaryForPath:", node);
  daemon_->answer("dictionaryForPath:withDirSizes:", node);
  daemon_->answer("childrenDictionariesForPath:", PropertyList::array({node}));
  daemon_->answer("stringValueForProfileKey:", "value");
  daemon_->answer("getFileTypeToggle:", 7);
  state_.onBegin();
  EXPECT_TRUE(state_.automaticMode());
  EXPECT_EQ(state_.pausedMinutes(), 30U);
  EXPECT_EQ(state_.marketingMessage().string(), "buy");
  EXPECT_EQ(state_.dictionaryForPath("/x"), node);
  EXPECT_EQ(state_.dictionaryForPath("/x", true), node);
  EXPECT_EQ(state_.childrenDictionariesForPath("/x")[0], node);
  EXPECT_EQ(state_.stringValueForProfileKey("k").string(), "value");
  EXPECT_EQ(state_.getFileTypeToggle(".txt"), 7U);
  EXPECT_EQ(daemon_->calls()[4], (Call{"dictionaryForPath:withDirSizes:", {"/x", 1}}));
}

TEST_F(BackupStateTest, ThreeOperationsRaiseBecauseTheTableLacksThem) {
  state_.onBegin();
  EXPECT_THROW(state_.setBackupControl(5), InvalidArgument);
  EXPECT_THROW(state_.setBackupControl(5, 1), InvalidArgument);
  EXPECT_THROW(state_.intValueForProfileKey("k"), InvalidArgument);
  EXPECT_THROW(state_.setValueForProfileKey("k", 5U), InvalidArgument);
  EXPECT_TRUE(log_.has("-[BackupState setValueForProfileKey:withUnsigned:]: k = 5"))
      << "written whether or not the log is on";
  EXPECT_TRUE(daemon_->calls().empty());
}

TEST_F(BackupStateTest, AThousandCyclesLeaveNothingBehind) {
  const auto descriptors = testing::countOf("fd");
  const auto observers = NotificationCenter::defaultCenter().observerCount();
  std::ptrdiff_t threads = testing::countOf("task");
  for (int i = 0; i < 500; ++i) {
    state_.onBegin();
    ASSERT_TRUE(state_.connected());
    state_.onEnd();
  }
  daemon_.reset();
  for (int i = 0; i < 500; ++i) {
    state_.onBegin();
    ASSERT_FALSE(state_.connected());
    state_.onEnd();
  }
  EXPECT_TRUE(testing::eventually([] { return RunLoop::main().load() == RunLoop::Load{}; }));
  EXPECT_EQ(NotificationCenter::defaultCenter().observerCount(), observers);
  EXPECT_TRUE(testing::eventually([&] { return testing::countOf("task") <= threads; }));
  EXPECT_TRUE(testing::eventually([&] { return testing::countOf("fd") <= descriptors; }));
}

}  // namespace
}  // namespace keldane
