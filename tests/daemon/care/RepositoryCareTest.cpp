#include "daemon/care/RepositoryCare.h"

#include <algorithm>
#include <random>

#include "daemon/Clock.h"
#include "daemon/care/catalogue/Gathering.h"
#include "tests/daemon/care/CareFixture.h"

namespace keldane {
namespace {

using testing::Keeping;
using testing::RepositoryCareTest;

std::string randomText(std::size_t length) {
  std::mt19937 chance(1);
  std::string text(length, '\0');
  std::generate(text.begin(), text.end(), [&] { return static_cast<char>(chance() & 0xFF); });
  return text;
}

TEST_F(RepositoryCareTest, TheFirstStartMakesARepositoryWithAKeyOfItsOwn) {
  Keeping first(folder_ / "first.sqlite", DataFolder{folder_ / "new"});
  ASSERT_TRUE(first.care.makeReady(first.job));
  const RepositoryConfig configuration = first.files.configuration().value();
  EXPECT_EQ(configuration.location, folder_ / "new/repository");
  EXPECT_EQ(configuration.repositoryId.size(), 64U);
  EXPECT_NE(configuration.computerNumber, 0U);
  const std::string key = first.files.key();
  EXPECT_EQ(key.size(), 52U);
  ASSERT_TRUE(first.care.makeReady(first.job));
  EXPECT_EQ(first.files.key(), key) << "the next start changes nothing";
  EXPECT_EQ(first.files.configuration()->repositoryId, configuration.repositoryId);
}

TEST_F(RepositoryCareTest, ARepositoryThatIsGoneIsNeverMadeAnew) {
  std::filesystem::rename(folder_ / "data/repository", folder_ / "away");
  EXPECT_EQ(here_->care.makeReady(here_->job).health, Health::missing);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "data/repository"));
  std::filesystem::rename(folder_ / "away", folder_ / "data/repository");
  EXPECT_TRUE(here_->care.makeReady(here_->job));
}

TEST_F(RepositoryCareTest, ALostCatalogueComesBackWithItsNumbersDatesAndRules) {
  store(true);
  folder_.write("files/a", "second, and longer");
  store();
  here_->rules.setType(".tmp", kTypeExclude);
  folder_.write("files/c", "new");
  store();
  const auto recordsOf = [this] {
    std::vector<std::string> lines;
    for (const char* name : {"a", "sub/b", "c"}) {
      for (const VersionRecord& version : versions(name)) {
        lines.push_back(std::string(name) + ' ' + std::to_string(version.version) + ' ' +
                        std::to_string(version.size) + ' ' + std::to_string(version.modified) + ' ' +
                        std::to_string(version.date) + ' ' + version.snapshot.substr(0, 8));
      }
    }
    return lines;
  };
  const std::vector<std::string> before = recordsOf();
  ASSERT_EQ(before.size(), 4U);
  const std::uint32_t highest = here_->catalogue.highestNumber();
  begin("another.sqlite");
  EXPECT_EQ(recordsOf(), before);
  EXPECT_EQ(here_->catalogue.highestNumber(), highest);
  EXPECT_TRUE(here_->rules.decide(file("a"), false).selected);
  EXPECT_EQ(here_->rules.type(".tmp"), kTypeExclude);
  const std::atomic<bool> goOn = false;
  here_->scanner.scan(folder_ / "files", goOn);
  EXPECT_EQ(here_->pending.totals().files, 0U) << "nothing has to be stored again";
}

TEST_F(RepositoryCareTest, ASnapshotThatTheDaemonDidNotLiveToNoteIsFound) {
  store(true);
  folder_.write("files/a", "second, and longer");
  std::filesystem::copy_file(folder_ / "store.sqlite", folder_ / "earlier.sqlite");
  here_->catalogue.setValue(Store::Table::settings, "x", "y");
  store();
  ASSERT_EQ(versions("a").size(), 2U);
  begin("earlier.sqlite");
  EXPECT_EQ(versions("a").size(), 2U);
}

TEST_F(RepositoryCareTest, WhatSomebodyElseForgotCountsAsStoredNoLonger) {
  store(true);
  std::vector<Snapshot> snapshots;
  ASSERT_TRUE(here_->engine.snapshots(false, snapshots, here_->job));
  ASSERT_TRUE(here_->engine.forget({snapshots.at(0).id}, here_->job));
  bool lost = false;
  here_->care.lostFiles = [&] { lost = true; };
  ASSERT_TRUE(here_->care.makeReady(here_->job));
  EXPECT_TRUE(lost);
  EXPECT_FALSE(here_->catalogue.record(file("a")));
}

TEST_F(RepositoryCareTest, ADrillComparesWithTheDiskAndElseWithTheHashes) {
  store(true);
  folder_.write("files/a", "changed since");
  const DrillEnd end = here_->care.drill(20, here_->job);
  EXPECT_TRUE(end.answer) << end.answer.detail;
  EXPECT_EQ(end.compared, 1U);
  EXPECT_EQ(end.hashed, 1U);
  EXPECT_TRUE(end.failed.empty());
  EXPECT_EQ(here_->catalogue.value(Store::Table::settings, "drillCompared"), "1");
}

TEST_F(RepositoryCareTest, ADrillFindsWhatCannotBeHadBack) {
  store(true);
  damage();
  bool lost = false;
  std::string told;
  here_->care.lostFiles = [&] { lost = true; };
  here_->care.alert = [&](const std::string& sentence) { told = sentence; };
  const DrillEnd end = here_->care.drill(20, here_->job);
  ASSERT_TRUE(end.answer) << end.answer.detail;
  ASSERT_FALSE(end.failed.empty()) << "half of each pack is damaged";
  EXPECT_TRUE(lost);
  EXPECT_FALSE(told.empty());
  EXPECT_TRUE(here_->catalogue.record(end.failed.at(0))->damaged);
}

TEST_F(RepositoryCareTest, FilesInADamagedPackAreStoredAnewAndFetchedBeforeTheyCount) {
  store(true);
  // Bytes that cannot be compressed are in the largest pack, so the packs of the trees stay whole.
  const std::string content = randomText(300'000);
  folder_.write("files/sub/b", content);
  store();
  const std::string pack = largestPack();
  ASSERT_TRUE(here_->care.check(1, 1, here_->job).ok);
  std::filesystem::permissions(pack, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
  std::fstream stream(pack, std::ios::in | std::ios::out | std::ios::binary);
  stream.seekp(8);
  stream.write("damage", 6);
  stream.close();
  const RepositoryCare::CheckEnd end = here_->care.check(1, 1, here_->job);
  EXPECT_FALSE(end.ok);
  ASSERT_EQ(end.damagedFiles, std::vector<std::string>{file("sub/b")}) << end.sentence;
  EXPECT_TRUE(here_->catalogue.record(file("sub/b"))->damaged);
  EXPECT_FALSE(here_->catalogue.record(file("a"))->damaged);
  store();
  const BackupRecord healed = here_->catalogue.record(file("sub/b")).value();
  EXPECT_FALSE(healed.damaged);
  EXPECT_EQ(fetched(versions("sub/b").at(0), "sub/b"), content);
}

TEST_F(RepositoryCareTest, ForgetsWhatRetentionAllowsAndKeepsTheNewestVersions) {
  store(true);
  for (const char* content : {"one", "two!", "three"}) {
    folder_.write("files/a", content);
    store();
  }
  ASSERT_EQ(here_->catalogue.snapshots().size(), 4U);
  std::size_t gone = 0;
  ASSERT_TRUE(here_->care.forgetDue(1, here_->job, &gone));
  EXPECT_EQ(gone, 0U) << "all of the last hour stays";
  EXPECT_EQ(versions("a").size(), 4U);
}

TEST_F(RepositoryCareTest, TheQuotaIsTheRepositorysRealSize) {
  store(true);
  ASSERT_TRUE(here_->care.makeReady(here_->job));
  std::uint64_t size = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ / "data/repository")) {
    size += entry.is_regular_file() ? entry.file_size() : 0;
  }
  EXPECT_EQ(here_->care.repositorySize(), size);
  EXPECT_TRUE(here_->care.mayGrow());
  here_->catalogue.setValue(Store::Table::profile, "QuotaMB", "1");
  EXPECT_TRUE(here_->care.mayGrow());
  here_->care.grew(std::uint64_t{2} << 20);
  EXPECT_EQ(here_->care.mayGrow().health, Health::full);
}

TEST_F(RepositoryCareTest, UpkeepIsDueInItsIntervalsAndAClockThatWasSetBackDoesNotPutItOffForLong) {
  store(true);
  EXPECT_FALSE(here_->care.lookAfter(here_->job)) << "the first look begins the intervals";
  here_->catalogue.setValue(Store::Table::settings, "lastDrill", std::to_string(timeOfDay() - 8 * 86400));
  EXPECT_TRUE(here_->care.lookAfter(here_->job));
  EXPECT_TRUE(here_->catalogue.value(Store::Table::settings, "lastDrillResult"));
  here_->catalogue.setValue(Store::Table::settings, "lastCheck", std::to_string(timeOfDay() + 1e6));
  EXPECT_FALSE(here_->care.lookAfter(here_->job));
  EXPECT_LE(std::stod(here_->catalogue.value(Store::Table::settings, "lastCheck").value()), timeOfDay());
}

}  // namespace
}  // namespace keldane
