#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using StoreSnapshots = testing::StoreFixture;

TEST_F(StoreSnapshots, NumbersGoUpAcrossLives) {
  EXPECT_EQ(store.highestNumber(), 0U);
  EXPECT_EQ(store.takeNumber(), 1U);
  EXPECT_EQ(store.takeNumber(), 2U);
  store.raiseHighestNumber(9);
  store.raiseHighestNumber(5);
  Store next(folder / "s");
  EXPECT_EQ(next.highestNumber(), 9U);
  EXPECT_EQ(next.takeNumber(), 10U);
}

TEST_F(StoreSnapshots, AStoredFileHasARecord) {
  addPartial(1, {"/d/a", "/d/b"});
  addPartial(2, {"/d/a"});
  const std::optional<BackupRecord> record = store.record("/d/a");
  ASSERT_TRUE(record);
  EXPECT_EQ(static_cast<const FileState&>(*record), (FileState{2, 20, 200}));
  EXPECT_EQ(record->version, 2U);
  EXPECT_EQ(record->date, 2000);
  EXPECT_FALSE(record->damaged);
  EXPECT_FALSE(record->removed);
  EXPECT_EQ(store.record("/d/b")->version, 1U);
  EXPECT_FALSE(store.record("/d"));
}

TEST_F(StoreSnapshots, VersionsNameASnapshotThatHoldsThem) {
  addPartial(1, {"/a"});
  addPartial(2, {"/a"});
  addFull(3, {}, {"/a"});
  const std::vector<VersionRecord> versions = store.versions("/a");
  ASSERT_EQ(versions.size(), 2U);
  EXPECT_EQ(versions[0].version, 2U);
  EXPECT_EQ(versions[0].size, 2U);
  EXPECT_EQ(versions[0].snapshot, idOf(3)) << "full ones are preferred";
  EXPECT_EQ(versions[1].version, 1U);
  EXPECT_EQ(versions[1].snapshot, idOf(1));
  EXPECT_EQ(store.versions("/a", 1).size(), 1U);
  EXPECT_TRUE(store.versions("/none").empty());
}

TEST_F(StoreSnapshots, RemovingASnapshotTakesWhatItAloneHolds) {
  addPartial(1, {"/a", "/b"});
  addPartial(2, {"/a"}, {"/b"});
  store.removeSnapshots({1});
  EXPECT_EQ(versionsOf("/a"), "2");
  EXPECT_EQ(versionsOf("/b"), "1") << "the second one holds it, too";
  store.removeSnapshots({2});
  EXPECT_FALSE(store.record("/a"));
  EXPECT_FALSE(store.record("/b"));
  EXPECT_TRUE(store.snapshots().empty());
  EXPECT_EQ(store.totals().files, 0U);
  EXPECT_EQ(store.totals().bytes, 0U);
}

TEST_F(StoreSnapshots, TheNewestVersionLeftTakesThePlaceOfOneThatGoes) {
  addPartial(1, {"/a"});
  addPartial(2, {"/a"});
  addPartial(3, {"/a"});
  store.removeSnapshots({3});
  EXPECT_EQ(store.record("/a")->version, 2U);
  EXPECT_EQ(store.record("/a")->size, 2U);
  EXPECT_EQ(versionsOf("/a"), "2 1");
  EXPECT_EQ(store.totals().bytes, 2U);
}

TEST_F(StoreSnapshots, AFullSnapshotHoldsWhatItConfirmed) {
  addPartial(1, {"/a", "/b"});
  addFull(2, {"/c"}, {"/a", "/b"});
  addFull(3, {"/b"}, {"/a", "/c"});
  store.removeSnapshots({1, 2});
  EXPECT_EQ(versionsOf("/a"), "1");
  EXPECT_EQ(versionsOf("/b"), "3") << "its first version was in the second snapshot only";
  EXPECT_EQ(versionsOf("/c"), "2");
}

TEST_F(StoreSnapshots, AFullSnapshotThatLacksAFileIsNotSaidToHoldIt) {
  addFull(1, {"/a", "/b"});
  addFull(2, {}, {"/b"});  // "/a" could not be read
  addFull(3, {}, {"/a", "/b"});
  addFull(4, {}, {"/a", "/b"});
  store.removeSnapshots({3, 4});
  EXPECT_EQ(store.versions("/a").at(0).snapshot, idOf(1));
  EXPECT_EQ(store.versions("/b").at(0).snapshot, idOf(2));
  store.removeSnapshots({1});
  EXPECT_FALSE(store.record("/a"));
  EXPECT_TRUE(store.record("/b"));
}

TEST_F(StoreSnapshots, StatesAreThoseOfABackup) {
  addPartial(1, {"/d/a", "/d/b", "/d2", "/d/e/f"});
  addPartial(2, {"/d/a", "/d/new"});
  addPartial(3, {"/d/a"});
  EXPECT_EQ(stateOf("/d"), "/d/a:3 /d/b:1 /d/e/f:1 /d/new:2");
  EXPECT_EQ(stateOf("/d", 2), "/d/a:2 /d/b:1 /d/e/f:1 /d/new:2");
  EXPECT_EQ(stateOf("/d", 1), "/d/a:1 /d/b:1 /d/e/f:1");
  EXPECT_EQ(stateOf("/d", 0, 2500), "/d/a:2 /d/b:1 /d/e/f:1 /d/new:2");
  EXPECT_EQ(stateOf("/d", 0, 500), "");
  EXPECT_EQ(stateOf("/d/a", 2), "/d/a:2");
  EXPECT_EQ(stateOf("/", 1), "/d/a:1 /d/b:1 /d/e/f:1 /d2:1");
}

TEST_F(StoreSnapshots, AStateLeavesOutWhatWasRemovedBefore) {
  addPartial(1, {"/d/a", "/d/b"});
  addPartial(2, {"/d/a"});
  addPartial(3, {"/x"});
  store.setRemoved("/d/a", true, 2500);
  EXPECT_EQ(stateOf("/d"), "/d/a:2 /d/b:1") << "a folder that was deleted can be had back";
  EXPECT_EQ(stateOf("/d", 2), "/d/a:2 /d/b:1");
  EXPECT_EQ(stateOf("/d", 3), "/d/b:1");
  store.removeSnapshots({3});
  EXPECT_EQ(stateOf("/d", 3), "/d/b:1") << "the time of a forgotten backup is known";
  EXPECT_EQ(stateOf("/d", 0, 2400), "/d/a:2 /d/b:1");
  EXPECT_EQ(stateOf("/d", 0, 2600), "/d/b:1");
}

TEST_F(StoreSnapshots, GatheredVersionsAreFoundAtTheirPrefix) {
  addPartial(1, {"/a"});
  addPartial(2, {"/a", "/b"});
  SnapshotRecord gathered = snapshot(3, false);
  gathered.prefix = "/gathered";
  store.addGathered(gathered, {{"/a", 1}, {"/b", 2}, {"/a", 7}, {"/none", 1}});
  store.removeSnapshots({1, 2});
  EXPECT_EQ(versionsOf("/a"), "1");
  const VersionRecord version = store.versions("/a").at(0);
  EXPECT_EQ(version.snapshot, idOf(3));
  EXPECT_EQ(version.prefix, "/gathered");
  EXPECT_EQ(version.size, 1U);
  EXPECT_EQ(versionsOf("/b"), "2");
}

TEST_F(StoreSnapshots, WholeIdsReplaceBeginnings) {
  addPartial(1, {"/a"});
  store.setSnapshotIds({{1, "whole"}, {9, "unknown"}});
  ASSERT_EQ(store.snapshots().size(), 1U);
  EXPECT_EQ(store.snapshots()[0].id, "whole");
}

TEST_F(StoreSnapshots, StoringClearsAnEarlierRemovalAndFailure) {
  addPartial(1, {"/a", "/b", "/c"});
  store.setRemoved("/a", true, 1500);
  store.setRemoved("/b", true, 1500);
  store.setRemoved("/c", true, 2500);
  store.setFailure("/a", "denied", 1);
  store.setFailure("/b", "denied", 1);
  store.setFailure("/z", "denied", 1);
  addPartial(2, {"/a", "/c"}, {"/b"});
  EXPECT_FALSE(store.record("/a")->removed);
  EXPECT_FALSE(store.record("/b")->removed);
  EXPECT_TRUE(store.record("/c")->removed) << "it was removed after the backup had begun";
  EXPECT_EQ(store.failureCount(), 1U);
}

TEST_F(StoreSnapshots, ABatchOfManySlicesIsWhole) {
  std::vector<std::string> paths;
  for (int index = 0; index < 2345; ++index) {
    paths.push_back("/d/" + std::to_string(index));
  }
  addPartial(1, paths);
  addFull(2, {}, paths);
  store.removeSnapshots({1});
  EXPECT_EQ(store.totals().files, 2345U);
  EXPECT_EQ(store.recordsIn("/d").size(), 2345U);
  EXPECT_EQ(store.versionsBelow("/d", 0, 0).size(), 2345U);
  store.setRemoved("/d", true, 5);
  EXPECT_EQ(store.totals().files, 0U);
  store.removeSnapshots({2});
  EXPECT_TRUE(store.recordsIn("/d").empty());
}

TEST_F(StoreSnapshots, TellsWhatWasDirectlyInAFolder) {
  addFull(1, {"/d/a", "/d/sub/x", "/d/sub/deep/y", "/d/sub0", "/other"});
  addPartial(2, {"/d/a", "/d/new/z"});
  store.setRemoved("/d/sub", true, 2500);
  const auto namesAt = [&](const std::string& where, double time) {
    std::string text;
    const Store::FolderState state = store.folderAt(where, time);
    for (const auto& [path, version] : state.files) {
      text += path + ":" + std::to_string(version.version) + " ";
    }
    for (const std::string& path : state.folders) {
      text += path + "/ ";
    }
    return text;
  };
  EXPECT_EQ(namesAt("/d", 500), "");
  EXPECT_EQ(namesAt("/d", 1000), "/d/a:1 /d/sub0:1 /d/sub/ ");
  EXPECT_EQ(namesAt("/d", 2000), "/d/a:2 /d/sub0:1 /d/new/ /d/sub/ ");
  EXPECT_EQ(namesAt("/d", 3000), "/d/a:2 /d/sub0:1 /d/new/ ");
  EXPECT_EQ(namesAt("/d/sub", 2000), "/d/sub/x:1 /d/sub/deep/ ");
  EXPECT_EQ(namesAt("/", 1000), "/other:1 /d/ ");
  EXPECT_EQ(namesAt("/none", 3000), "");
}

}  // namespace
}  // namespace keldane
