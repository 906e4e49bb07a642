#include <limits>

#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using StoreRecords = testing::StoreFixture;
using Names = std::vector<std::string>;

Names namesOf(const std::map<std::string, BackupRecord>& records) {
  Names names;
  for (const auto& [path, record] : records) {
    names.push_back(path);
  }
  return names;
}

TEST_F(StoreRecords, AFolderHasItsDirectChildren) {
  addPartial(1, {"/top", "/d/a", "/d/a!b", "/d/a/x", "/d/a/y/z", "/d/a0", "/d/b/c", "/d/c", "/d2/x"});
  EXPECT_EQ(namesOf(store.recordsIn("/d")), (Names{"/d/a", "/d/a!b", "/d/a0", "/d/c"}));
  EXPECT_EQ(namesOf(store.recordsIn("/")), (Names{"/top"}));
  EXPECT_TRUE(store.recordsIn("/none").empty());
  EXPECT_EQ(store.recordsIn("/d").at("/d/c").version, 1U);
}

TEST_F(StoreRecords, AFolderHasFoldersWithRecords) {
  addPartial(1, {"/top", "/d/a", "/d/a!/q", "/d/a/x", "/d/a/y/z", "/d/b/c", "/d/c", "/d2/x"});
  store.setRemoved("/d/b", true, 5);
  EXPECT_EQ(store.foldersWithRecordsIn("/d"), (Names{"a", "a!", "b"}));
  EXPECT_EQ(store.foldersWithRecordsIn("/"), (Names{"d", "d2"}));
  EXPECT_TRUE(store.foldersWithRecordsIn("/d2").empty());
  EXPECT_TRUE(store.foldersWithRecordsIn("/top").empty());
}

TEST_F(StoreRecords, DamagedFilesAreKnown) {
  addPartial(1, {"/a", "/b", "/c"});
  EXPECT_TRUE(store.damagedFiles().empty());
  store.setDamaged("/b", store.snapshots().front().id);
  EXPECT_EQ(store.damagedFiles(), std::set<std::string>{"/b"});
  addPartial(2, {"/b"});
  EXPECT_TRUE(store.damagedFiles().empty());
}

TEST_F(StoreRecords, AFolderTellsItsChildrenAndFoldersAtOnce) {
  addPartial(1, {"/d/a", "/d/a!/q", "/d/a/x", "/d/b/c", "/d/c"});
  std::vector<std::string> folders;
  EXPECT_EQ(namesOf(store.recordsIn("/d", &folders)), (Names{"/d/a", "/d/c"}));
  EXPECT_EQ(folders, (Names{"a", "a!", "b"}));
}

TEST_F(StoreRecords, ManyChildrenAreFoundInSlices) {
  Names paths, folders;
  for (int index = 10000; index < 11700; ++index) {
    paths.push_back("/d/" + std::to_string(index) + (index % 3 == 0 ? "/x" : ""));
    if (index % 3 == 0) {
      folders.push_back(std::to_string(index));
    }
  }
  addPartial(1, paths);
  EXPECT_EQ(store.foldersWithRecordsIn("/d"), folders);
  EXPECT_EQ(store.recordsIn("/d").size(), paths.size() - folders.size());
}

TEST_F(StoreRecords, AVisitGoesAtAndBelowAPath) {
  addPartial(1, {"/a", "/a/b", "/a/b/c", "/a!", "/ab", "/z"});
  const auto visited = [&](const std::string& path, std::size_t most) {
    Names names;
    store.visitRecords(path, [&](const std::string& name, const BackupRecord& record) {
      EXPECT_EQ(store.record(name), record) << "the store may be used meanwhile";
      names.push_back(name);
      return names.size() < most;
    });
    return names;
  };
  EXPECT_EQ(visited("/a", 9), (Names{"/a", "/a/b", "/a/b/c"}));
  EXPECT_EQ(visited("/a", 2), (Names{"/a", "/a/b"}));
  EXPECT_EQ(visited("/a", 1), (Names{"/a"}));
  EXPECT_EQ(visited("/", 9), (Names{"/a", "/a!", "/a/b", "/a/b/c", "/ab", "/z"}));
  EXPECT_TRUE(visited("/no", 9).empty());
}

TEST_F(StoreRecords, AVisitOfManySeesEachOnce) {
  Names paths;
  for (int index = 10000; index < 12000; ++index) {
    paths.push_back("/d/" + std::to_string(index));
  }
  addPartial(1, paths);
  Names visited;
  store.visitRecords("/d", [&](const std::string& path, const BackupRecord&) {
    visited.push_back(path);
    return true;
  });
  EXPECT_EQ(visited, paths);
}

TEST_F(StoreRecords, NamesMayBeAnyBytes) {
  const std::string strange = "/d/\xff\xfe\x80";
  addPartial(1, {strange, strange + "/x", "/d/'\"*?[%_"});
  EXPECT_TRUE(store.record(strange));
  EXPECT_EQ(store.foldersWithRecordsIn("/d"), (Names{"\xff\xfe\x80"}));
  EXPECT_EQ(store.versionsBelow(strange, 0, 0).size(), 2U);
  EXPECT_EQ(store.recordsIn("/d").size(), 2U);
}

TEST_F(StoreRecords, TotalsAreOfWhatIsThere) {
  addPartial(1, {"/a", "/b"});
  addPartial(10, {"/a", "/c"});
  EXPECT_EQ(store.totals().files, 3U);
  EXPECT_EQ(store.totals().bytes, 21U);
  store.setRemoved("/a", true, 5);
  store.setRemoved("/a", true, 6);
  EXPECT_EQ(store.totals().files, 2U);
  EXPECT_EQ(store.totals().bytes, 11U);
  store.setRemoved("/a", false, 7);
  EXPECT_EQ(store.totals().files, 3U);
  addPartial(20, {"/a"});
  EXPECT_EQ(store.totals().bytes, 31U);
  EXPECT_EQ(Store(folder / "s").totals().bytes, 31U) << "and in the next life";
}

TEST_F(StoreRecords, NobodysSizesSpoilTheTotals) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();  // the greatest size of a file
  addPartial(10, {"/small"});
  store.addSnapshot(snapshot(11, false), {{"/a", {kLargest, 1, 1}}, {"/b", {kLargest - 100, 1, 1}}}, {});
  EXPECT_EQ(store.totals().files, 3U);
  EXPECT_EQ(store.totals().bytes, 2 * kLargest - 90);
  store.addSnapshot(snapshot(12, false), {{"/c", {kLargest, 1, 1}}}, {});
  EXPECT_EQ(store.totals().bytes, std::numeric_limits<std::uint64_t>::max());
  for (const char* path : {"/a", "/b", "/c"}) {
    store.setRemoved(path, true, 5);
  }
  EXPECT_EQ(store.totals().bytes, 10U) << "to the byte";
  store.setRemoved("/b", false, 6);
  store.addSnapshot(snapshot(13, false), {{"/b", {kLargest - 2, 2, 2}}}, {});
  EXPECT_EQ(store.totals().bytes, kLargest - 2 + 10);
  EXPECT_EQ(Store(folder / "s").totals().bytes, kLargest - 2 + 10) << "and in the next life";
}

TEST_F(StoreRecords, AnImpossibleSizeIsTheLargest) {
  store.addSnapshot(snapshot(1, false), {{"/a", {std::numeric_limits<std::uint64_t>::max(), 1, 1}}}, {});
  EXPECT_EQ(store.totals().bytes, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
}

TEST_F(StoreRecords, AFolderIsKnownByWhatLiesBelowIt) {
  addPartial(1, {"/d/e/a", "/f"});
  store.setRemoved("/d", true, 5);
  EXPECT_TRUE(store.hasRecordBelow("/d"));
  EXPECT_TRUE(store.hasRecordBelow("/d/e"));
  EXPECT_TRUE(store.hasRecordBelow("/"));
  EXPECT_FALSE(store.hasRecordBelow("/d/e/a"));
  EXPECT_FALSE(store.hasRecordBelow("/f"));
  EXPECT_FALSE(store.hasRecordBelow("/e"));
}

}  // namespace
}  // namespace keldane
