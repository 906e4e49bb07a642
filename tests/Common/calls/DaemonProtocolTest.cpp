#include "Common/calls/DaemonProtocol.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace keldane {
namespace {

// The wire protocol is repeated here, so that no row changes by accident.
constexpr MethodSignature kExpected[] = {
    {"setEnabled:", 'v', "c"},
    {"pausedMinutes", 'I', ""},
    {"setPausedMinutes:", 'v', "I"},
    {"setIncludeRequired:", 'v', "c"},
    {"recoverMode", 'c', ""},
    {"setRecoverMode:", 'v', "c"},
    {"lowerPriorityMode", 'c', ""},
    {"setLowerPriorityMode:", 'v', "c"},
    {"delayShutdown", 'c', ""},
    {"setDelayShutdown:", 'v', "c"},
    {"automaticMode", 'c', ""},
    {"setAutomaticMode:", 'v', "c"},
    {"serverURL", '@', ""},
    {"daemonState", '@', ""},
    {"serviceState", 'I', ""},
    {"setServiceState:", 'v', "I"},
    {"dictionaryForPath:", '@', "@"},
    {"dictionaryForPath:withDirSizes:", '@', "@c"},
    {"childrenDictionariesForPath:", '@', "@"},
    {"excludeFileFromBackup:", 'I', "@"},
    {"unexcludeFileFromBackup:", 'I', "@"},
    {"policyExcludeList", '@', ""},
    {"excludedFiles:", '@', "@"},
    {"setFileTypeToggle:toggle:", 'v', "@I"},
    {"getFileTypeToggle:", 'I', "@"},
    {"addFileToBackup:", 'v', "@"},
    {"addFilesToBackup:", 'v', "@"},
    {"removeFileFromBackup:", 'v', "@"},
    {"setPriorityBackup:", 'v', "@"},
    {"setBackupControl:", 'v', "I"},
    {"restoreFile:toPath:version:priority:", 'I', "@@II"},
    {"getCurrentRestoreJob", 'I', ""},
    {"getRestoreJobStatus:", 'I', "I"},
    {"cancelAllRestoreJobs", 'v', ""},
    {"setAccountOverQuotaTestingFlag:", 'v', "c"},
    {"clearAccountOverQuotaTestingFlag", 'v', ""},
    {"setAlertHandler", 'v', ""},
    {"endAlertHandler", 'v', ""},
    {"setStateHandler", 'v', ""},
    {"endStateHandler", 'v', ""},
    {"longForState:", 'q', "I"},
    {"longlongForState:", 'Q', "I"},
    {"stringForState:", '@', "I"},
    {"backupColorsForFiles:", '@', "@"},
    {"stringValueForProfileKey:", '@', "@"},
    {"setValueForProfileKey:withString:", 'v', "@@"},
    {"userEmail", '@', ""},
    {"computerNumber", '@', ""},
    {"marketingMessage", '@', ""},
    {"liveStateString", '@', ""},
    {"backedupStateString", '@', ""},
    {"mappedUserAsString:", '@', "@"},
    {"restoreWithChoices:", 'c', "@"},
    {"showRestoreWizard", 'v', ""},
    {"terminate", 'v', ""},
};

TEST(DaemonProtocol, IsExactlyItsFiftyFiveMethods) {
  ASSERT_EQ(std::size(kExpected), 55U);
  ASSERT_EQ(KeldaneDaemonProtocol.methods.size(), std::size(kExpected));
  for (std::size_t i = 0; i < std::size(kExpected); ++i) {
    const MethodSignature& method = KeldaneDaemonProtocol.methods[i];
    EXPECT_EQ(method.selector, kExpected[i].selector);
    EXPECT_EQ(method.returnCode, kExpected[i].returnCode) << method.selector;
    EXPECT_EQ(method.argumentCodes, kExpected[i].argumentCodes) << method.selector;
  }
}

TEST(DaemonProtocol, HasAnArgumentForEachColon) {
  for (const MethodSignature& method : KeldaneDaemonProtocol.methods) {
    EXPECT_EQ(static_cast<std::size_t>(std::count(method.selector.begin(), method.selector.end(), ':')),
              method.argumentCodes.size())
        << method.selector;
  }
}

TEST(DaemonProtocol, NamesItsOperationsByTheFirstLabel) {
#define EXPECT_FIRST_LABEL(selector, operation, ...) \
  EXPECT_EQ(std::string(selector).substr(0, std::string_view(selector).find(':')), #operation);
  KELDANE_DAEMON_METHODS(EXPECT_FIRST_LABEL)
#undef EXPECT_FIRST_LABEL
}

TEST(DaemonProtocol, FindsBySelector) {
  EXPECT_EQ(KeldaneDaemonProtocol.find("restoreFile:toPath:version:priority:")->argumentCodes, "@@II");
  EXPECT_EQ(KeldaneDaemonProtocol.find("restoreFile:"), nullptr);
}

TEST(DaemonProtocol, LacksThreeSelectorsOnPurpose) {
  for (const char* selector :
       {"setBackupControl:turnOff:", "intValueForProfileKey:", "setValueForProfileKey:withUnsigned:"}) {
    EXPECT_EQ(KeldaneDaemonProtocol.find(selector), nullptr) << selector;
  }
}

}  // namespace
}  // namespace keldane
