#include "hosts/core/status/FileStatus.h"

#include <gtest/gtest.h>

#include "Common/nodes/FileNode.h"

namespace keldane {
namespace {

using namespace backup_flags;

PropertyList node(std::uint32_t flags, BackupColor color, const char* state = "") {
  return PropertyList::dictionary(
      {{"state", state}, {"backupFlags", flags}, {"backupColor", static_cast<std::int32_t>(color)}});
}

Emblem emblem(std::uint32_t flags, BackupColor color, const char* state = "") {
  return fileStatusOf(node(flags, color, state)).emblem;
}

TEST(FileStatusTest, TellsTheStatesOfNodesApart) {
  EXPECT_EQ(emblem(kBackup | kBackedUp, BackupColor::green), Emblem::backedUp);
  EXPECT_EQ(emblem(kBackup | kFolder, BackupColor::green), Emblem::backedUp);
  EXPECT_EQ(emblem(kBackup, BackupColor::yellow), Emblem::waiting);
  EXPECT_EQ(emblem(kBackup | kBackedUp, BackupColor::yellow), Emblem::waiting);
  EXPECT_EQ(emblem(kBackup, BackupColor::blue, "New"), Emblem::changed);
  EXPECT_EQ(emblem(kBackup | kBackedUp, BackupColor::blue, "Changed since last backup"), Emblem::changed);
  EXPECT_EQ(emblem(kBackup, BackupColor::blue, "Could not be backed up: Permission denied"), Emblem::failed);
  EXPECT_EQ(emblem(kExclude, BackupColor::none), Emblem::excluded);
  EXPECT_EQ(emblem(kExclude | kBackedUp, BackupColor::none), Emblem::excluded);
  EXPECT_EQ(emblem(kExclude | kSystem, BackupColor::gray), Emblem::excluded);
}

TEST(FileStatusTest, ShowsNothingOfWhatIsNotSelected) {
  EXPECT_EQ(emblem(0, BackupColor::none), Emblem::none);
  EXPECT_EQ(emblem(kBackedUp, BackupColor::none), Emblem::none) << "its old versions are no backup of it";
  EXPECT_EQ(emblem(kFolder | kNotActive, BackupColor::none), Emblem::none);
  EXPECT_EQ(emblem(kBackup, BackupColor::none, "Pipe, goes with its folder"), Emblem::none);
  EXPECT_EQ(emblem(kBackup | kBackedUp | kMissing, BackupColor::blue), Emblem::none);
}

TEST(FileStatusTest, NeverSaysThatSomethingIsBackedUpByTheColourAlone) {
  EXPECT_EQ(emblem(0, BackupColor::green), Emblem::none);
  EXPECT_EQ(emblem(kBackup, BackupColor::green), Emblem::none);
}

TEST(FileStatusTest, AnUnknownColourHasNoEmblem) {
  EXPECT_EQ(emblem(kBackup | kBackedUp, static_cast<BackupColor>(99)), Emblem::none);
  EXPECT_EQ(emblem(kBackup | kBackedUp, BackupColor::undefined), Emblem::none);
}

TEST(FileStatusTest, StandsWhateverADaemonSends) {
  EXPECT_EQ(fileStatusOf({}), FileStatus());
  EXPECT_EQ(fileStatusOf("text"), FileStatus());
  const PropertyList strange = PropertyList::dictionary({{"state", 5},
                                                         {"backupFlags", "many"},
                                                         {"backupColor", PropertyList::array({})},
                                                         {"backupDate", "now"}});
  EXPECT_EQ(fileStatusOf(strange), FileStatus());
  EXPECT_EQ(fileStatusOf(PropertyList::dictionary({{"backupDate", Date{1e300}}})).lastBackup, 0);
  EXPECT_EQ(fileStatusOf(PropertyList::dictionary({{"backupDate", Date{-1e300}}})).lastBackup, 0);
}

TEST(FileStatusTest, HasTheTextAndTheDate) {
  const FileStatus status = fileStatusOf(
      PropertyList::dictionary({{"state", "Backed up"}, {"backupDate", Date::fromUnixTime(1763737440.5)}}));
  EXPECT_EQ(status.text, "Backed up");
  EXPECT_EQ(status.lastBackup, 1763737440);
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_EQ(backupDateText(1763737440), "2025-11-21 15:04");
  EXPECT_EQ(backupDateText(0), "");
}

TEST(FileStatusTest, EachEmblemHasAnIconOfItsOwn) {
  EXPECT_EQ(iconNameOf(Emblem::none), "");
  EXPECT_EQ(iconNameOf(Emblem::backedUp), "emblem-keldane-backed-up");
  EXPECT_EQ(emblemNameOf(Emblem::waiting), "keldane-waiting");
  EXPECT_EQ(emblemNameOf(Emblem::changed), "keldane-changed");
  EXPECT_EQ(emblemNameOf(Emblem::failed), "keldane-failed");
  EXPECT_EQ(emblemNameOf(Emblem::excluded), "keldane-excluded");
}

}  // namespace
}  // namespace keldane
