#include "daemon/engine/restic/output/ResticOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace keldane::testing {
namespace {

TEST(ResticOutputTest, ReadsTimes) {
  EXPECT_EQ(timeFromText("1970-01-01T00:00:00Z"), 0);
  EXPECT_EQ(timeFromText("2001-09-09T01:46:40.123456789Z"), 1'000'000'000'123'456'789);
  EXPECT_EQ(timeFromText("2001-09-09T01:46:40.5Z"), 1'000'000'000'500'000'000);
  EXPECT_EQ(timeFromText("2001-09-09T03:46:40+02:00"), 1'000'000'000'000'000'000);
  EXPECT_EQ(timeFromText("2001-09-08T20:16:40-05:30"), 1'000'000'000'000'000'000);
  EXPECT_EQ(timeFromText("1969-12-31T23:59:59.5Z"), -500'000'000);
  EXPECT_EQ(timeFromText("0001-01-01T00:00:00Z"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(timeFromText("9999-01-01T00:00:00Z"), std::numeric_limits<std::int64_t>::max());
  for (const char* text : {"", "2001", "2001-13-01T00:00:00Z", "2001-02-30T00:00:00Z", "2001-01-01T00:00:00",
                           "2001-01-01T00:00:00Zx", "2001-01-01T00:00:00.Q", "2001-01-01 00:00:00Z"}) {
    EXPECT_EQ(timeFromText(text), std::nullopt) << text;
  }
}

TEST(ResticOutputTest, ReadsEntries) {
  const auto entry = entryFromLine(
      R"({"name":"f","type":"file","path":"/d/f","uid":1000,"gid":100,"size":12,"mode":12583404,)"
      R"("mtime":"1970-01-01T00:00:01Z","ctime":"1970-01-01T00:00:02Z","struct_type":"node"})");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->path, "/d/f");
  EXPECT_EQ(entry->kind, EntryKind::file);
  EXPECT_EQ(entry->owner, 1000U);
  EXPECT_EQ(entry->mode, 06754U);
  EXPECT_EQ(entry->statusChanged, 2'000'000'000);
  EXPECT_FALSE(entryFromLine(R"({"struct_type":"snapshot"})"));
  EXPECT_FALSE(entryFromLine("nonsense"));
  EXPECT_FALSE(entryFromLine("[1]"));
  EXPECT_EQ(entryFromLine(R"({"struct_type":"node","path":5,"size":"x"})")->size, 0U);
}

TEST(ResticOutputTest, RefusesListsThatAreNone) {
  for (const char* text : {"", "x", "5", "[5]", "{}"}) {
    EXPECT_FALSE(snapshotsFromText(text)) << text;
  }
  EXPECT_TRUE(snapshotsFromText("null")->empty());
  EXPECT_FALSE(matchesFromText("x"));
  EXPECT_TRUE(matchesFromText("[5,{},{\"matches\":[5]}]")->empty());
  EXPECT_FALSE(packUsersFromText("x"));
  EXPECT_EQ(idFromConfig("[]"), "");
  EXPECT_EQ(sizeFromStats("{}"), std::nullopt);
  EXPECT_EQ(sizeFromStats("{\"total_size\":7}"), 7U);
  EXPECT_TRUE(topTreesFromText("x").empty());
  PackBlobs blobs;
  addBlobs("{\"packs\":[5,{\"id\":\"a\",\"blobs\":[5]}]}", {"a"}, blobs);
  EXPECT_TRUE(blobs.data.empty());
}

TEST(ResticOutputTest, ReadsWhatUsesAPackAmidstComplaints) {
  const std::string id(64, 'a');
  const auto found = packUsersFromText(R"([{"object_type":"tree","path":"/d","snapshot":"s"},)"
                                       R"({"object_type":"tree","path":"/d","snapshot":"s"})"
                                       "Unable to load tree " +
                                       id + "\n ... which belongs to snapshot " + id + "\n]\n");
  ASSERT_TRUE(found);
  ASSERT_EQ(found->size(), 1U);
  EXPECT_EQ((*found)[0].entry.kind, EntryKind::folder);
}

}  // namespace
}  // namespace keldane::testing
