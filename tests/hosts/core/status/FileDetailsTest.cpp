#include "hosts/core/status/FileDetails.h"

#include <gtest/gtest.h>

#include "Common/nodes/FileNode.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane {
namespace {

using namespace backup_flags;
using Rows = std::vector<std::pair<std::string, std::string>>;

std::string sizeText(std::uint64_t bytes) { return std::to_string(bytes) + " bytes"; }

PropertyList node(std::uint32_t flags, std::int32_t color, const char* text) {
  return PropertyList::dictionary({{"state", text},
                                   {"backupFlags", flags},
                                   {"backupColor", color},
                                   {"simpleFlags", simple_flags::kEnabled},
                                   {"isDirectory", false}});
}

std::string next(const PropertyList& about, const PropertyList& state) {
  for (const auto& [name, value] : fileDetailsOf(about, state, sizeText).rows) {
    if (name == "Next backup") {
      return value;
    }
  }
  return "no such row";
}

TEST(FileDetailsTest, TellsAllOfAFileThatIsStored) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  const Date date = Date::fromUnixTime(1763737440);
  const PropertyList reason = PropertyList::dictionary({{"text", "A rule includes it."}});
  const PropertyList version = PropertyList::dictionary({{"version", 3}, {"backupDate", date}, {"size", 70}});
  const PropertyList about =
      PropertyList::dictionary({{"state", "Backed up"},
                                {"backupFlags", kBackup | kBackedUp},
                                {"backupColor", 2},
                                {"simpleFlags", simple_flags::kEnabled},
                                {"backupDate", date},
                                {"reasons", PropertyList::array({reason})},
                                {"versions", PropertyList::array({version, "strange"})}});
  const FileDetails details = fileDetailsOf(about, PropertyList::dictionary({}), sizeText);
  EXPECT_EQ(details.rows, (Rows{{"Status", "Backed up"},
                                {"Why", "A rule includes it."},
                                {"Last backup", "2025-11-21 15:04"},
                                {"Next backup", "When it changes"},
                                {"Size stored", "70 bytes"}}));
  EXPECT_EQ(details.versions, (std::vector<StoredVersion>{{3, 1763737440, 70}}));
  EXPECT_TRUE(details.canBackUp);
  EXPECT_FALSE(details.isFolder);
}

TEST(FileDetailsTest, SaysWhenTheNextBackupIs) {
  const PropertyList waiting = node(kBackup, 3, "Waiting to be backed up");
  const auto state = [](const char* key, const PropertyList& value) {
    return PropertyList::dictionary({{key, value}});
  };
  EXPECT_EQ(next(waiting, state("paused", false)), "As soon as possible");
  EXPECT_EQ(next(waiting, state("paused", true)), "After the pause");
  EXPECT_EQ(next(waiting, state("heldBy", "off")), "When the backup is switched on again");
  EXPECT_EQ(next(waiting, state("heldBy", "recovering")), "After the recovery");
  EXPECT_EQ(next(waiting, state("heldBy", "manual")),
            "When it is asked for, because automatic backup is off");
  EXPECT_EQ(next(waiting, state("restingBecause", "on battery")), "The backup rests: on battery");
  EXPECT_EQ(next(waiting, {}), "Unknown");
  EXPECT_EQ(next(node(kBackup, 5, "Could not be backed up: no"), state("paused", false)),
            "With the next attempt");
  EXPECT_EQ(next(node(0, 1, ""), state("paused", false)), "None, it is not selected for backup");
}

TEST(FileDetailsTest, WhatIsBarredCannotBeBackedUp) {
  const PropertyList barred =
      PropertyList::dictionary({{"state", "Excluded by policy"}, {"backupFlags", kExclude | kSystem}});
  EXPECT_FALSE(fileDetailsOf(barred, {}, sizeText).canBackUp);
  EXPECT_FALSE(fileDetailsOf({}, {}, sizeText).canBackUp);
  EXPECT_EQ(fileDetailsOf({}, {}, sizeText).rows, (Rows{{"Status", "The backup knows nothing of it"}}));
}

TEST(FileDetailsTest, WithoutADaemonEachSaysSo) {
  const std::string away = "The backup daemon cannot be reached.";
  EXPECT_EQ(askForDetails(nullptr, "/a", sizeText).rows, (Rows{{"Status", away}}));
  EXPECT_EQ(backUpNow(nullptr, "/a", false), away);
  EXPECT_EQ(startRestore(nullptr, "/a", 1, "").sentence, away);
  EXPECT_EQ(startRestore(nullptr, "/a", 1, "").job, 0U);
}

class FileCommandsTest : public ::testing::Test {
 protected:
  FileCommandsTest() : daemon_(folder_ / "d.sock") { EXPECT_TRUE(link_.connect(folder_ / "d.sock")); }
  testing::TemporaryFolder folder_;
  testing::FakeDaemon daemon_;
  DaemonLink link_;
};

TEST_F(FileCommandsTest, BackingUpSaysWhatTheDaemonMadeOfIt) {
  daemon_.answer("dictionaryForPath:withDirSizes:", node(kBackup | kInclude, 3, "Waiting"));
  EXPECT_EQ(backUpNow(&link_, "/a", false), "It will be backed up as soon as possible.");
  EXPECT_EQ(daemon_.count("addFileToBackup:"), 1U);
  EXPECT_EQ(daemon_.count("setPriorityBackup:"), 1U);
  daemon_.answer("dictionaryForPath:withDirSizes:", node(0, 1, "Held back"));
  EXPECT_EQ(backUpNow(&link_, "/folder", true), "The daemon did not take it: Held back.");
  EXPECT_EQ(daemon_.count("setPriorityBackup:"), 1U) << "folders are not preferred";
}

TEST_F(FileCommandsTest, ARestoreIsFollowedToItsEnd) {
  EXPECT_EQ(startRestore(&link_, "/a", 3, "/there").job, 0U) << "refused";
  daemon_.answer("restoreFile:toPath:version:priority:", 9);
  EXPECT_EQ(startRestore(&link_, "/a", 3, "/there").job, 9U);
  EXPECT_EQ(daemon_.calls().back().arguments, (PropertyList::Array{"/a", "/there", 3, 0}));
  for (const int goesOn : {1, 2}) {
    daemon_.answer("getRestoreJobStatus:", goesOn);
    EXPECT_EQ(restoreResult(&link_, 9), "");
  }
  for (const auto& [status, word] : {std::pair(3, "was restored"),
                                     {4, "with problems"},
                                     {5, "could not"},
                                     {6, "cancelled"},
                                     {0, "Nothing"}}) {
    daemon_.answer("getRestoreJobStatus:", status);
    EXPECT_NE(restoreResult(&link_, 9).find(word), std::string::npos) << status;
  }
}

}  // namespace
}  // namespace keldane
