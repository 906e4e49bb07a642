// The daemon's answers to its clients over the socket.
#include "daemon/server/DaemonService.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "Common/nodes/FileNode.h"
#include "tests/daemon/server/ServerFixture.h"

namespace keldane {
namespace {

using testing::Client;
using testing::eventually;

class DaemonServiceTest : public testing::DaemonServerTest {};

TEST_F(DaemonServiceTest, AFileNeverSeenCanBeChosen) {
  const PropertyList value = node(docs("a.txt"));
  EXPECT_EQ(value["state"].string(), "Not selected for backup");
  EXPECT_EQ(value["fileName"].string(), "a.txt");
  EXPECT_EQ(value["path"].string(), docs("a.txt"));
  EXPECT_EQ(value["size"].intValue(), 5);
  EXPECT_EQ(value["uid"].unsignedIntValue(), getuid());
  EXPECT_FALSE(value["isDirectory"].boolValue());
  EXPECT_TRUE(value["backupDate"].isAbsent());
  const std::uint32_t flags = value["simpleFlags"].unsignedIntValue();
  EXPECT_EQ(flags & 7U, simple_flags::kEnabled);
  EXPECT_EQ(flags & 0x70000U, simple_flags::kPriorityEnabled | simple_flags::kPriorityVisible);
}

TEST_F(DaemonServiceTest, WhatIsAddedIsBackedUpAndWhatIsRemovedIsNot) {
  (*client_)->addFileToBackup(docs("a.txt"));
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  const PropertyList value = node(docs("a.txt"));
  EXPECT_TRUE(value["backupDate"].isDate());
  EXPECT_EQ(value["version"].intValue(), 1);
  EXPECT_EQ(value["backupColor"].intValue(), 2);
  EXPECT_EQ(value["simpleFlags"].unsignedIntValue() & 0x70007U,
            simple_flags::kEnabled | simple_flags::kChecked);
  EXPECT_EQ(value["backupFlags"].unsignedIntValue(),
            backup_flags::kBackup | backup_flags::kBackedUp | backup_flags::kInclude);
  (*client_)->removeFileFromBackup(docs("a.txt"));
  EXPECT_EQ(state(docs("a.txt")), "Not selected for backup");
  EXPECT_EQ(simple(docs("a.txt")) & 7U, simple_flags::kEnabled);
}

TEST_F(DaemonServiceTest, AFolderTakesWhatIsInIt) {
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomes(docs("b.txt"), "Backed up"));
  ASSERT_TRUE(becomes(docs(), "Backed up"));
  const PropertyList value = (*client_)->dictionaryForPath(docs(), 1);
  EXPECT_TRUE(value["isDirectory"].boolValue());
  EXPECT_EQ(value["size"].intValue(), 9);
  EXPECT_EQ(value["totalCount"].intValue(), 2);
  EXPECT_EQ(node(docs())["size"].intValue(), 0) << "sizes of folders on demand only";
  (*client_)->removeFileFromBackup(docs("a.txt"));
  EXPECT_EQ(simple(docs()) & 7U, simple_flags::kEnabled | simple_flags::kChecked | simple_flags::kGrayed);
  (*client_)->removeFileFromBackup(docs());
  (*client_)->addFileToBackup(docs("b.txt"));
  EXPECT_EQ(state(docs()), "Partly selected for backup");
}

TEST_F(DaemonServiceTest, EachStandingHasItsText) {
  EXPECT_EQ(state("/etc/passwd"), "Excluded by policy");
  EXPECT_EQ(simple("/etc/passwd"), 0U) << "no choice";
  EXPECT_EQ(node("/etc/passwd")["backupColor"].intValue(), 4);
  EXPECT_EQ(state(options_.store), "Excluded by policy");
  (*client_)->setPausedMinutes(10U);
  (*client_)->addFileToBackup(docs("a.txt"));
  EXPECT_EQ(state(docs("a.txt")), "Waiting to be backed up");
  EXPECT_EQ(node(docs("a.txt"))["backupColor"].intValue(), 3);
  (*client_)->setPriorityBackup(docs("a.txt"));
  EXPECT_NE(simple(docs("a.txt")) & simple_flags::kPriorityChecked, 0U);
  (*client_)->setPausedMinutes(0U);
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  // The batch ends a moment after the file counts as stored.
  ASSERT_TRUE(eventually([&] { return (*client_)->daemonState()["pendingFileCount"].intValue() == 0; }));
  (*client_)->setPausedMinutes(10U);
  folder_.write("home/docs/a.txt", "alpha, changed");
  EXPECT_EQ(state(docs("a.txt")), "Changed since last backup");
  std::filesystem::remove(docs("a.txt"));
  EXPECT_EQ(state(docs("a.txt")), "Deleted here, still in the backup");
  EXPECT_NE(node(docs("a.txt"))["backupFlags"].unsignedIntValue() & backup_flags::kMissing, 0U);
  (*client_)->addFileToBackup(docs());
  folder_.write("home/docs/new.txt", "");
  EXPECT_TRUE(eventually([&] { return node(docs("new.txt"))["backupColor"].intValue() == 3; }));
  EXPECT_TRUE(node(docs("never")).isAbsent());
}

TEST_F(DaemonServiceTest, ListsTheChildrenOfAFolder) {
  const PropertyList children = (*client_)->childrenDictionariesForPath(docs());
  ASSERT_EQ(children.count(), 2U);
  EXPECT_EQ(children[0]["fileName"].string(), "a.txt");
  EXPECT_EQ(children[1]["path"].string(), docs("b.txt"));
  EXPECT_TRUE((*client_)->childrenDictionariesForPath(docs("a.txt")).isAbsent());
}

TEST_F(DaemonServiceTest, TypesHaveRules) {
  EXPECT_EQ((*client_)->getFileTypeToggle(".txt"), 0U);
  (*client_)->setFileTypeToggle(".txt", 6U);
  EXPECT_EQ((*client_)->getFileTypeToggle(".txt"), 6U);
  EXPECT_TRUE(becomes(docs("a.txt"), "Backed up"));
  EXPECT_NE(simple(docs("a.txt")) & simple_flags::kTypeChecked, 0U);
  (*client_)->setFileTypeToggle(".txt", 7U);
  EXPECT_EQ(state(docs("a.txt")), "Not selected for backup");
  (*client_)->setFileTypeToggle(".txt", 99U);
  EXPECT_EQ((*client_)->getFileTypeToggle(".txt"), 7U) << "no such toggle";
}

TEST_F(DaemonServiceTest, WhatIsIgnoredCanBeSeenAndChanged) {
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  EXPECT_NE((*client_)->stringValueForProfileKey("Ignored").string().find("@cache-tag"), std::string::npos);
  (*client_)->setValueForProfileKey("Ignored", "a.*\n");
  EXPECT_TRUE(becomes(docs("a.txt"), "Not selected for backup"));
  EXPECT_EQ((*client_)->stringValueForProfileKey("Ignored").string(), "a.*\n");
  (*client_)->addFileToBackup(docs("a.txt"));
  EXPECT_TRUE(becomes(docs("a.txt"), "Backed up")) << "a person's rule outranks the list";
}

TEST_F(DaemonServiceTest, TheStateHasEveryKeyAndMoves) {
  PropertyList value = (*client_)->daemonState();
  for (const char* key : {"backedUpFileCount", "backedupFileSize", "backupState", "currentBackupFile",
                          "currentRestoreFile", "currentRestoreJob", "isBackupNeeded", "lowerPriorityMode",
                          "paused", "pendingFileCount", "pendingFileSize", "recoverMode", "serviceState",
                          "statusString", "isQuotaLimited", "isOverQuota", "quotaMB", "backupControlFlags"}) {
    EXPECT_FALSE(value[key].isAbsent()) << key;
  }
  EXPECT_EQ(value["statusString"].string(), "Up to date");
  (*client_)->setPausedMinutes(10U);
  (*client_)->addFileToBackup(docs("a.txt"));
  value = (*client_)->daemonState();
  EXPECT_TRUE(value["paused"].boolValue());
  EXPECT_EQ(value["backupState"].intValue(), 2);
  EXPECT_EQ(value["pendingFileCount"].intValue(), 1);
  EXPECT_EQ(value["pendingFileSize"].intValue(), 5);
  EXPECT_TRUE(value["isBackupNeeded"].boolValue());
  EXPECT_EQ((*client_)->pausedMinutes(), 10U);
  (*client_)->setPausedMinutes(0U);
  EXPECT_TRUE(eventually([&] { return (*client_)->daemonState()["backedUpFileCount"].intValue() == 1; }));
  EXPECT_TRUE(eventually([&] { return (*client_)->daemonState()["pendingFileCount"].intValue() == 0; }));
}

TEST_F(DaemonServiceTest, KeepsTheSwitches) {
  Client& client = *client_;
  for (const auto set :
       {&DaemonCalls<KeldaneProxy>::setEnabled<int>, &DaemonCalls<KeldaneProxy>::setIncludeRequired<int>,
        &DaemonCalls<KeldaneProxy>::setRecoverMode<int>,
        &DaemonCalls<KeldaneProxy>::setLowerPriorityMode<int>,
        &DaemonCalls<KeldaneProxy>::setDelayShutdown<int>,
        &DaemonCalls<KeldaneProxy>::setAutomaticMode<int>}) {
    (client.proxy().*set)(1);
  }
  EXPECT_EQ(client->recoverMode(), 1);
  EXPECT_EQ(client->lowerPriorityMode(), 1);
  EXPECT_EQ(client->delayShutdown(), 1);
  EXPECT_EQ(client->automaticMode(), 1);
  client->setRecoverMode(0);
  EXPECT_EQ(client->recoverMode(), 0);
  EXPECT_EQ(client->serviceState(), 1U);
  client->setServiceState(4U);
  EXPECT_EQ(client->serviceState(), 4U);
  client->setServiceState(0U);
  EXPECT_EQ(client->serviceState(), 0U) << "which is not the same as never set";
  EXPECT_EQ(client->daemonState()["serviceState"].unsignedIntValue(), 0U);
  client->setBackupControl(5U);
  EXPECT_EQ(client->daemonState()["backupControlFlags"].intValue(), 5);
}

TEST_F(DaemonServiceTest, KnowsTheAccount) {
  Client& client = *client_;
  EXPECT_EQ(client->serverURL().string(), "");
  client->setValueForProfileKey("ServerURL", "https://backup");
  client->setValueForProfileKey("UserEmail", "a@b");
  client->setValueForProfileKey("ComputerNumber", "12");
  client->setValueForProfileKey("MarketingMessage", "more room");
  client->setValueForProfileKey("QuotaMB", "2048");
  EXPECT_EQ(client->serverURL().string(), "https://backup");
  EXPECT_EQ(client->userEmail().string(), "a@b");
  EXPECT_TRUE(client->computerNumber().identical(12));
  EXPECT_EQ(client->marketingMessage().string(), "more room");
  EXPECT_EQ(client->stringValueForProfileKey("UserEmail").string(), "a@b");
  EXPECT_TRUE(client->stringValueForProfileKey("none").isAbsent());
  EXPECT_EQ(client->daemonState()["quotaMB"].intValue(), 2048);
  EXPECT_TRUE(client->daemonState()["isQuotaLimited"].boolValue());
  client->setAccountOverQuotaTestingFlag(1);
  EXPECT_TRUE(client->daemonState()["isOverQuota"].boolValue());
  client->clearAccountOverQuotaTestingFlag();
  EXPECT_FALSE(client->daemonState()["isOverQuota"].boolValue());
  EXPECT_EQ(client->mappedUserAsString(0).string(), "root");
  EXPECT_EQ(client->mappedUserAsString("somebody").string(), "somebody");
}

TEST_F(DaemonServiceTest, ExcludesFilesAndTellsWhichAndWhy) {
  Client& client = *client_;
  EXPECT_EQ(client->dictionaryForPath(docs("a.txt"))["fileName"].string(), "a.txt");
  EXPECT_EQ(client->excludeFileFromBackup(docs("a.txt")), 0U);
  EXPECT_EQ(client->excludedFiles(docs())[0].string(), docs("a.txt"));
  EXPECT_EQ(client->unexcludeFileFromBackup(docs("a.txt")), 0U);
  EXPECT_EQ(client->excludedFiles(docs()).count(), 0U);
  EXPECT_EQ(client->excludeFileFromBackup("/etc/passwd"), static_cast<std::uint32_t>(EPERM));
  EXPECT_EQ(client->excludeFileFromBackup(5), static_cast<std::uint32_t>(EINVAL));
  EXPECT_GT(client->policyExcludeList().count(), 3U);
}

TEST_F(DaemonServiceTest, SaysInNumbersAndTextsWhatIsBackedUp) {
  Client& client = *client_;
  client->addFilesToBackup(PropertyList::array({docs("a.txt"), 5, docs("b.txt")}));
  EXPECT_TRUE(becomes(docs("b.txt"), "Backed up"));
  EXPECT_EQ(client->backupColorsForFiles(PropertyList::array({docs("b.txt"), "/etc/passwd", 7})),
            PropertyList::array({2, 4, 0}));
  EXPECT_TRUE(eventually([&] { return client->longForState(0U) == 2; })) << "the first key counts files";
  EXPECT_EQ(client->longlongForState(0U), 2U);
  EXPECT_EQ(client->stringForState(0U).string(), "2");
  EXPECT_TRUE(client->stringForState(99U).isAbsent());
  EXPECT_FALSE(client->liveStateString().string().empty());
  EXPECT_EQ(client->backedupStateString().string(), "2 files, 9 bytes backed up");
}

TEST_F(DaemonServiceTest, FollowsARestoreToItsEnd) {
  Client& client = *client_;
  EXPECT_EQ(client->restoreFile("a", "/b", 1U, 0U), 0U) << "a relative path is refused";
  const std::uint32_t job = client->restoreFile(docs("none"), docs("copy"), 1U, 0U);
  EXPECT_GT(job, 0U);
  EXPECT_TRUE(eventually([&] {
    return client->getRestoreJobStatus(job) == static_cast<std::uint32_t>(RestoreStatus::failed) ||
           client->getRestoreJobStatus(job) == static_cast<std::uint32_t>(RestoreStatus::doneWithProblems);
  })) << "nothing of that path is stored";
  EXPECT_TRUE(eventually([&] { return client->getCurrentRestoreJob() == 0U; }));
  EXPECT_EQ(client->getRestoreJobStatus(99U), 0U);
  client->cancelAllRestoreJobs();
  EXPECT_EQ(client->restoreWithChoices(PropertyList::array({})), 0);
  client->showRestoreWizard();
  EXPECT_EQ(client->getCurrentRestoreJob(), 0U);
}

TEST_F(DaemonServiceTest, EndsTheDaemonWhenItIsAskedTo) {
  Client& client = *client_;
  client->setAlertHandler();
  client->endAlertHandler();
  client->terminate();
  EXPECT_TRUE(eventually([&] { return terminated_.load(); }));
}

TEST_F(DaemonServiceTest, WhatLeavesTheBackupIsNotPreferredWhenItComesBack) {
  (*client_)->setAutomaticMode(0);
  (*client_)->setPausedMinutes(5U);
  const auto isPreferred = [&] {
    return ((*client_)->dictionaryForPath(docs("a.txt"))["backupFlags"].unsignedIntValue() & 15U) != 0;
  };
  const auto prefer = [&] {
    (*client_)->addFileToBackup(docs("a.txt"));
    EXPECT_FALSE(isPreferred());
    (*client_)->setPriorityBackup(docs("a.txt"));
    EXPECT_TRUE(isPreferred());
  };
  prefer();
  EXPECT_EQ((*client_)->excludeFileFromBackup(docs("a.txt")), 0U);
  EXPECT_FALSE(isPreferred());
  prefer();
  EXPECT_EQ((*client_)->unexcludeFileFromBackup(docs("a.txt")), 0U);
  prefer();
  (*client_)->unexcludeFileFromBackup(docs("a.txt"));
  (*client_)->addFileToBackup(docs());
  prefer();
  (*client_)->unexcludeFileFromBackup(docs("a.txt"));
  (*client_)->excludeFileFromBackup(docs());
  prefer();
}

TEST_F(DaemonServiceTest, WhatIsNoPathIsAnsweredWithNothing) {
  for (const PropertyList& path :
       {PropertyList(5), PropertyList("relative"), PropertyList(std::string("/a\0b", 4)),
        PropertyList::array({}), PropertyList("")}) {
    EXPECT_TRUE((*client_)->dictionaryForPath(path, 0).isAbsent());
    EXPECT_TRUE((*client_)->childrenDictionariesForPath(path).isAbsent());
    (*client_)->addFileToBackup(path);
    (*client_)->setPriorityBackup(path);
    (*client_)->setFileTypeToggle(path, 6U);
  }
  (*client_)->setFileTypeToggle(std::string(100'000, 'x'), 6U);
  EXPECT_EQ((*client_)->getFileTypeToggle(std::string(100'000, 'x')), 0U);
}

TEST_F(DaemonServiceTest, RememberAllWhenItBeginsAgain) {
  (*client_)->addFileToBackup(docs("a.txt"));
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  (*client_)->setPausedMinutes(30U);
  (*client_)->setFileTypeToggle(".tmp", 7U);
  (*client_)->setLowerPriorityMode(1);
  (*client_)->setValueForProfileKey("k", "v");
  EXPECT_EQ((*client_)->stringValueForProfileKey("k").string(), "v");
  end();
  begin();
  EXPECT_EQ(state(docs("a.txt")), "Backed up");
  EXPECT_EQ((*client_)->pausedMinutes(), 30U);
  EXPECT_EQ((*client_)->getFileTypeToggle(".tmp"), 7U);
  EXPECT_EQ((*client_)->lowerPriorityMode(), 1);
  EXPECT_EQ((*client_)->stringValueForProfileKey("k").string(), "v");
}

}  // namespace
}  // namespace keldane
