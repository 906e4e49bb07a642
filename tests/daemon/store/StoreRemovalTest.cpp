#include <SQLiteCpp/SQLiteCpp.h>

#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using StoreRemoval = testing::StoreFixture;

TEST_F(StoreRemoval, AFolderGoesWithAllBelowIt) {
  addPartial(1, {"/d", "/d/a", "/d/b/c", "/d!", "/e"});
  store.setFailure("/d/b/c", "denied", 1);
  store.setFailure("/d!", "denied", 1);
  store.setRemoved("/d/a", true, 3);
  store.setRemoved("/d", true, 5);
  for (const char* path : {"/d", "/d/a", "/d/b/c"}) {
    EXPECT_TRUE(store.record(path)->removed) << path;
  }
  EXPECT_FALSE(store.record("/d!")->removed);
  EXPECT_FALSE(store.record("/e")->removed);
  EXPECT_EQ(store.failureCount(), 1U) << "what is gone fails no longer";
  EXPECT_EQ(stateOf("/d", 0, 4), "") << "the backup was later";
}

TEST_F(StoreRemoval, TheFirstDateOfARemovalStays) {
  addPartial(1, {"/d/a"});
  store.setRemoved("/d/a", true, 2000);
  store.setRemoved("/d", true, 4000);
  EXPECT_EQ(stateOf("/d", 0, 3000), "");
}

TEST_F(StoreRemoval, OneFileThatIsThereAgainBringsNoOthers) {
  addPartial(1, {"/d", "/d/a"});
  store.setRemoved("/d", true, 5);
  store.setRemoved("/d", false, 6);
  EXPECT_FALSE(store.record("/d")->removed);
  EXPECT_TRUE(store.record("/d/a")->removed);
}

TEST_F(StoreRemoval, DamageIsOfTheVersionThatTheSnapshotHolds) {
  addPartial(1, {"/a", "/b"});
  addPartial(2, {"/a"});
  addFull(3, {}, {"/a", "/b"});
  store.setDamaged("/a", idOf(1));
  EXPECT_FALSE(store.record("/a")->damaged);
  EXPECT_TRUE(store.versions("/a").at(1).damaged);
  store.setDamaged("/a", idOf(3).substr(0, 8));
  EXPECT_TRUE(store.record("/a")->damaged) << "a beginning of the id does";
  EXPECT_FALSE(store.record("/b")->damaged);
  store.setDamaged("/b", "none-such");
  store.setDamaged("/b", "");
  store.setDamaged("/none", idOf(3));
  EXPECT_FALSE(store.record("/b")->damaged);
  addPartial(4, {"/a"});
  EXPECT_FALSE(store.record("/a")->damaged) << "it was stored anew";
}

TEST_F(StoreRemoval, DamageIsFoundByAWholeIdWhereABeginningIsKept) {
  addPartial(1, {"/a"});
  store.setSnapshotIds({{1, idOf(1).substr(0, 8)}});
  store.setDamaged("/a", idOf(1));
  EXPECT_TRUE(store.record("/a")->damaged);
}

TEST_F(StoreRemoval, ARemovalThatWasCutOffGoesOnAtTheNextStart) {
  addPartial(1, {"/a", "/b"});
  addFull(2, {"/c"}, {"/a"});
  {
    SQLite::Database database(folder / "s", SQLite::OPEN_READWRITE);
    database.exec(
        "INSERT INTO leaving SELECT number, full FROM snapshots; DELETE FROM snapshots;"
        "DELETE FROM held WHERE file = 1");
  }
  Store next(folder / "s");
  for (const char* path : {"/b", "/c"}) {
    EXPECT_FALSE(next.record(path)) << path;
  }
  SQLite::Database database(folder / "s", SQLite::OPEN_READONLY);
  EXPECT_EQ(database.execAndGet("SELECT COUNT(*) FROM leaving").getInt(), 0);
  EXPECT_EQ(database.execAndGet("SELECT COUNT(*) FROM held").getInt(), 0);
}

TEST_F(StoreRemoval, ClearingLeavesRulesJobsAndNumbers) {
  addFull(7, {"/a"});
  addPartial(8, {"/a"});
  store.setFailure("/b", "denied", 1);
  store.setRule("/", true);
  store.addRestore({});
  store.clearCatalogue();
  EXPECT_FALSE(store.record("/a"));
  EXPECT_TRUE(store.snapshots().empty());
  EXPECT_EQ(store.totals().files, 0U);
  EXPECT_EQ(store.totals().bytes, 0U);
  EXPECT_EQ(store.failureCount(), 0U);
  EXPECT_EQ(store.highestNumber(), 8U);
  EXPECT_EQ(store.rules().size(), 1U);
  EXPECT_EQ(store.restores().size(), 1U);
  addFull(9, {"/a"});
  EXPECT_EQ(versionsOf("/a"), "9");
}

}  // namespace
}  // namespace keldane
