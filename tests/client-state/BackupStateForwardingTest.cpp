#include <gtest/gtest.h>

#include "client-state/BackupState.h"
#include "platform/objects/Exceptions.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/LogCapture.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane {
namespace {

using testing::DaemonCall;

/// One forwarded operation: the call here, the call that arrives at the daemon, and the results.
struct Forwarded {
  const char* label;
  std::function<PropertyList(const BackupState&)> perform;  // the result as an object; absent for none
  DaemonCall arrives;
  PropertyList answer;    // the daemon's answer
  PropertyList expected;  // the client's result
  PropertyList without;   // the client's result without a daemon
};

void PrintTo(const Forwarded& row, std::ostream* out) { *out << row.label; }

template <class Operation>
std::function<PropertyList(const BackupState&)> silent(Operation operation) {
  return [operation](const BackupState& state) {
    operation(state);
    return PropertyList();
  };
}

const PropertyList kDictionary = PropertyList::dictionary({{"fileName", "a"}});

const Forwarded kForwarded[] = {
    {"setLowerPriorityModeOn",
     silent([](auto& s) { s.setLowerPriorityMode(true); }),
     {"setLowerPriorityMode:", {1}},
     {},
     {},
     {}},
    {"setLowerPriorityModeOff",
     silent([](auto& s) { s.setLowerPriorityMode(false); }),
     {"setLowerPriorityMode:", {0}},
     {},
     {},
     {}},
    {"automaticMode",
     [](auto& s) { return PropertyList(s.automaticMode()); },
     {"automaticMode", {}},
     2,
     true,
     false},
    {"setAutomaticMode",
     silent([](auto& s) { s.setAutomaticMode(true); }),
     {"setAutomaticMode:", {1}},
     {},
     {},
     {}},
    {"pausedMinutes",
     [](auto& s) { return PropertyList(s.pausedMinutes()); },
     {"pausedMinutes", {}},
     UINT32_MAX,
     UINT32_MAX,
     0},
    {"setPausedMinutes",
     silent([](auto& s) { s.setPausedMinutes(15); }),
     {"setPausedMinutes:", {15}},
     {},
     {},
     {}},
    {"setPausedMinutesNegative",
     silent([](auto& s) { s.setPausedMinutes(-1); }),
     {"setPausedMinutes:", {UINT32_MAX}},
     {},
     {},
     {}},
    {"setRecoverMode", silent([](auto& s) { s.setRecoverMode(true); }), {"setRecoverMode:", {1}}, {}, {}, {}},
    {"marketingMessage",
     [](auto& s) { return s.marketingMessage(); },
     {"marketingMessage", {}},
     "Hello",
     "Hello",
     {}},
    {"setAccountOverQuotaTestingFlag",
     silent([](auto& s) { s.setAccountOverQuotaTestingFlag(true); }),
     {"setAccountOverQuotaTestingFlag:", {1}},
     {},
     {},
     {}},
    {"clearAccountOverQuotaTestingFlag",
     silent([](auto& s) { s.clearAccountOverQuotaTestingFlag(); }),
     {"clearAccountOverQuotaTestingFlag", {}},
     {},
     {},
     {}},
    {"dictionaryForPath",
     [](auto& s) { return s.dictionaryForPath("/a"); },
     {"dictionaryForPath:", {"/a"}},
     kDictionary,
     kDictionary,
     {}},
    {"dictionaryForPathWithDirSizes",
     [](auto& s) { return s.dictionaryForPath("/a", true); },
     {"dictionaryForPath:withDirSizes:", {"/a", 1}},
     kDictionary,
     kDictionary,
     {}},
    {"childrenDictionariesForPath",
     [](auto& s) { return s.childrenDictionariesForPath("/a"); },
     {"childrenDictionariesForPath:", {"/a"}},
     PropertyList::array({kDictionary}),
     PropertyList::array({kDictionary}),
     {}},
    {"stringValueForProfileKey",
     [](auto& s) { return s.stringValueForProfileKey("K"); },
     {"stringValueForProfileKey:", {"K"}},
     "V",
     "V",
     {}},
    {"setValueForProfileKeyWithString",
     silent([](auto& s) { s.setValueForProfileKey("K", "V"); }),
     {"setValueForProfileKey:withString:", {"K", "V"}},
     {},
     {},
     {}},
    {"terminateDaemon", silent([](auto& s) { s.terminateDaemon(); }), {"terminate", {}}, {}, {}, {}},
    {"addFileToBackup",
     silent([](auto& s) { s.addFileToBackup("/a"); }),
     {"addFileToBackup:", {"/a"}},
     {},
     {},
     {}},
    {"removeFileFromBackup",
     silent([](auto& s) { s.removeFileFromBackup("/a"); }),
     {"removeFileFromBackup:", {"/a"}},
     {},
     {},
     {}},
    {"setPriorityBackup",
     silent([](auto& s) { s.setPriorityBackup("/a"); }),
     {"setPriorityBackup:", {"/a"}},
     {},
     {},
     {}},
    {"setFileTypeToggle",
     silent([](auto& s) { s.setFileTypeToggle(".txt", 6); }),
     {"setFileTypeToggle:toggle:", {".txt", 6}},
     {},
     {},
     {}},
    {"getFileTypeToggle",
     [](auto& s) { return PropertyList(s.getFileTypeToggle(".txt")); },
     {"getFileTypeToggle:", {".txt"}},
     7,
     7,
     0},
    {"setAlertHandler", silent([](auto& s) { s.setAlertHandler(); }), {"setAlertHandler", {}}, {}, {}, {}},
    {"endAlertHandler", silent([](auto& s) { s.endAlertHandler(); }), {"endAlertHandler", {}}, {}, {}, {}},
    {"setStateHandler", silent([](auto& s) { s.setStateHandler(); }), {"setStateHandler", {}}, {}, {}, {}},
    {"endStateHandler", silent([](auto& s) { s.endStateHandler(); }), {"endStateHandler", {}}, {}, {}, {}},
};

class BackupStateForwarding : public ::testing::Test {
 protected:
  BackupStateForwarding() {
    state_.setBundle(bundle_.bundle());
    state_.disableConnectTimer();
  }
  ~BackupStateForwarding() override { state_.onEnd(); }
  void connect() {
    daemon_ = std::make_unique<testing::FakeDaemon>(bundle_.daemonPath());
    state_.onBegin();
    ASSERT_TRUE(state_.connected());
  }
  /// Sends a call that must be the first to arrive, because nothing was sent before it.
  void expectThatNothingWasSent() {
    state_.terminateDaemon();
    ASSERT_TRUE(daemon_->waitForCalls(1));
    EXPECT_EQ(daemon_->calls(), (std::vector<DaemonCall>{{"terminate", {}}}));
  }

  testing::ClientBundle bundle_;
  std::unique_ptr<testing::FakeDaemon> daemon_;
  BackupState state_;
};

class Operation : public BackupStateForwarding, public ::testing::WithParamInterface<Forwarded> {};

TEST_P(Operation, ReachesTheDaemonUnchangedAndBringsItsAnswer) {
  connect();
  daemon_->answer(GetParam().arrives.selector, GetParam().answer);
  EXPECT_EQ(GetParam().perform(state_), GetParam().expected);
  ASSERT_TRUE(daemon_->waitForCalls(1));
  EXPECT_EQ(daemon_->calls(), (std::vector<DaemonCall>{GetParam().arrives}));
}

TEST_P(Operation, DoesNothingWithoutADaemon) {
  EXPECT_EQ(GetParam().perform(state_), GetParam().without) << "before the beginning";
  state_.onBegin();
  EXPECT_EQ(GetParam().perform(state_), GetParam().without) << "not connected";
}

INSTANTIATE_TEST_SUITE_P(BackupState, Operation, ::testing::ValuesIn(kForwarded), testing::byLabel);

// Tests of the three methods that the daemon's table lacks.

TEST_F(BackupStateForwarding, ABackupControlWithTurnOffRaisesAndSendsNothing) {
  connect();
  EXPECT_THROW(state_.setBackupControl(5), InvalidArgument);
  EXPECT_THROW(state_.setBackupControl(5, 3), InvalidArgument);
  try {
    state_.setBackupControl(5);
  } catch (const InvalidArgument& error) {
    EXPECT_NE(error.reason().find("setBackupControl:turnOff:"), std::string::npos) << error.reason();
  }
  expectThatNothingWasSent();
}

TEST_F(BackupStateForwarding, AnIntegerProfileValueRaisesAndSendsNothing) {
  connect();
  EXPECT_THROW(state_.intValueForProfileKey("K"), InvalidArgument);
  expectThatNothingWasSent();
}

TEST_F(BackupStateForwarding, SettingAnUnsignedProfileValueRaisesAndSendsNothing) {
  connect();
  EXPECT_THROW(state_.setValueForProfileKey("K", 5U), InvalidArgument);
  expectThatNothingWasSent();
}

TEST_F(BackupStateForwarding, WithoutADaemonTheThreeDoNothing) {
  state_.setBackupControl(5);
  state_.setValueForProfileKey("K", 5U);
  EXPECT_EQ(state_.intValueForProfileKey("K"), 0U);
}

TEST_F(BackupStateForwarding, SettingAnUnsignedProfileValueIsLoggedWhateverTheSwitchSays) {
  const testing::LogCapture log;
  state_.setValueForProfileKey("Key", 4294967295U);
  connect();
  EXPECT_THROW(state_.setValueForProfileKey("Key", 5U), InvalidArgument);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"-[BackupState setValueForProfileKey:withUnsigned:]: Key = 4294967295",
                                      "-[BackupState setValueForProfileKey:withUnsigned:]: Key = 5"}));
}

TEST_F(BackupStateForwarding, NoOtherProfileOperationLogs) {
  const testing::LogCapture log;
  connect();
  state_.setValueForProfileKey("Key", "text");
  state_.stringValueForProfileKey("Key");
  EXPECT_THROW(state_.intValueForProfileKey("Key"), InvalidArgument);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(BackupStateForwarding, WithAnAbsentArgumentNothingIsSentAndTheResultIsAbsent) {
  connect();
  EXPECT_TRUE(state_.dictionaryForPath(PropertyList()).isAbsent());
  expectThatNothingWasSent();
}

}  // namespace
}  // namespace keldane
