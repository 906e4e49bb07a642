#include "daemon/store/ChildRecords.h"

#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using ChildRecordsTest = testing::StoreFixture;

struct Children {
  std::vector<std::string> files, folders;
};

Children childrenOf(ChildRecords& records, const std::string& folder) {
  Children children;
  records.visit(
      folder, [&](std::string_view name, const BackupRecord&) { children.files.emplace_back(name); },
      [&](std::string_view name) { children.folders.emplace_back(name); });
  return children;
}

TEST_F(ChildRecordsTest, NamesFilesInOrderAndEachFolderOnce) {
  std::vector<StoredFile> stored;
  for (const char* path : {"/d/b", "/d/a/x", "/d/a/y/z", "/d/a!", "/d/a b/x", "/d", "/e/x", "/x"}) {
    stored.push_back({path, {7, 1, 2}});
  }
  ChildRecords records(store);
  EXPECT_TRUE(childrenOf(records, "/d").files.empty());
  store.addSnapshot({store.takeNumber(), "a snapshot", 1000, false, {}}, stored, {});
  const Children children = childrenOf(records, "/d");
  EXPECT_EQ(children.files, (std::vector<std::string>{"a!", "b"}));
  EXPECT_EQ(children.folders, (std::vector<std::string>{"a b", "a"})) << "in the order of their paths";
  EXPECT_EQ(childrenOf(records, "/").files, (std::vector<std::string>{"d", "x"}));
  EXPECT_EQ(childrenOf(records, "/").folders, (std::vector<std::string>{"d", "e"}));
  EXPECT_TRUE(childrenOf(records, "/d/b").files.empty());
}

TEST_F(ChildRecordsTest, ARecordHasAllThatTheStoreKnows) {
  store.addSnapshot({store.takeNumber(), "a snapshot", 1000, false, {}}, {{"/d/a", {7, 1, 2}}}, {});
  store.setRemoved("/d/a", true, 2000);
  ChildRecords records(store);
  BackupRecord found;
  records.visit(
      "/d", [&](std::string_view, const BackupRecord& record) { found = record; }, [](std::string_view) {});
  EXPECT_EQ(found, *store.record("/d/a"));
  EXPECT_TRUE(found.removed);
  EXPECT_TRUE(store.path().ends_with("/s"));
  EXPECT_FALSE(store.holdsFiles("/d"));
  store.setRemoved("/d/a", false, 0);
  EXPECT_TRUE(store.holdsFiles("/d") && store.holdsFiles("/") && store.holdsFiles("/d/a"));
  EXPECT_FALSE(store.holdsFiles("/d/"));
}

}  // namespace
}  // namespace keldane
