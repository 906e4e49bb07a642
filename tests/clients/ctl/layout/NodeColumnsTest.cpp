#include "clients/ctl/layout/NodeColumns.h"

#include <gtest/gtest.h>

#include "clients/ctl/layout/Text.h"

namespace keldane {
namespace {

struct FlagCase {
  std::uint32_t flags;
  bool isFolder;
  const char* letters;
};

TEST(ShortFlags, HaveALetterEachAtAFixedPlace) {
  using namespace backup_flags;
  const FlagCase cases[] = {
      {0, false, "--------"},
      {0, true, "d-------"},
      {kBackup, false, "-s------"},
      {kBackedUp, false, "--b-----"},
      {kInclude, false, "---+----"},
      {kFolderInclude, true, "d--+----"},
      {kExclude, false, "----x---"},
      {kNoFolder, true, "d---x---"},
      {kSystem | kExclude, false, "-----p--"},
      {kMissing | kBackedUp, false, "--b---m-"},
      {kBackup | 1, false, "-s-----1"},
      {15, false, "-------F"},
  };
  for (const FlagCase& each : cases) {
    const KeldaneFileNode::Pointer node = KeldaneFileNode::create("n", each.isFolder);
    node->setBackupFlags(each.flags);
    EXPECT_EQ(shortFlags(*node), each.letters) << each.flags;
  }
}

TEST(NodeRow, HasAColumnForEachAndTheNameLast) {
  const Terminal terminal;
  const KeldaneFileNode::Pointer node = KeldaneFileNode::create("a\nb", false);
  node->setState("Backed up");
  node->setSizeValue(2048);
  EXPECT_EQ(row(*node, "|-- ", "a\nb", {.allFlags = false, .columns = 0}, terminal),
            "--------  Backed up                    2.0 KiB  -                 |-- a\\nb");
  EXPECT_EQ(row(*node, "", "a\nb", {.allFlags = true, .columns = 80}, terminal),
            "--------  Backed up                    2.0 KiB  a\\nb  0x00000000 : Backup_Undefined");
}

TEST(NodeRow, LeavesColumnsOutWhereThereIsNoRoomForTheName) {
  const Terminal terminal;
  const KeldaneFileNode::Pointer node = KeldaneFileNode::create("name", true);
  node->setState("Backed up");
  const auto rowIn = [&](std::size_t columns) {
    return row(*node, "`-- ", "name of many characters", {.allFlags = false, .columns = columns}, terminal);
  };
  EXPECT_EQ(rowIn(0),
            "d-------  Backed up                          -  -                 "
            "`-- name of many characters/");
  EXPECT_EQ(rowIn(90),
            "d-------  Backed up                          -  -                 `-- <of many characters/");
  EXPECT_EQ(rowIn(62), "d-------  Backed up                   `-- <of many characters/");
  EXPECT_EQ(rowIn(40), "d-------  `-- name of many characters/");
  EXPECT_EQ(rowIn(20), "`-- <any characters/");
  EXPECT_EQ(rowIn(3), "<s/");
  EXPECT_EQ(rowIn(1), "<");
  for (std::size_t columns = 1; columns < 120; ++columns) {
    EXPECT_LE(columnsOf(rowIn(columns)), columns);
  }
}

TEST(NodeRow, AFolderHasASlashAndNoSize) {
  const Terminal terminal;
  const KeldaneFileNode::Pointer node = KeldaneFileNode::create("d", true);
  EXPECT_EQ(row(*node, "", "d", {.allFlags = false, .columns = 80}, terminal),
            "d-------                                     -  d/");
  EXPECT_EQ(row(*node, "", "/", {.allFlags = false, .columns = 80}, terminal),
            "d-------                                     -  /");
}

TEST(NodeJson, HasThePathAndTheFlagsAsText) {
  const KeldaneFileNode::Pointer node = KeldaneFileNode::create("f", false);
  EXPECT_TRUE(nodeJson(*node)["path"].is_null());
  node->setPath("/f");
  node->setBackupDate(Date::fromUnixTime(0));
  const nlohmann::ordered_json json = nodeJson(*node);
  EXPECT_EQ(json["path"], "/f");
  EXPECT_EQ(json["fileName"], "f");
  EXPECT_EQ(json["backupDate"], "1970-01-01T00:00:00Z");
  EXPECT_EQ(json["backupFlagsText"], "0x00000000 : Backup_Undefined");
}

}  // namespace
}  // namespace keldane
