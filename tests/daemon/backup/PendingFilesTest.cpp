#include "daemon/backup/PendingFiles.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace keldane {
namespace {

TEST(PendingFilesTest, CountsFilesAndBytesAndTakesTheNewSize) {
  PendingFiles pending;
  EXPECT_TRUE(pending.add("/a", 10));
  EXPECT_FALSE(pending.add("/a", 30)) << "it waits already";
  EXPECT_TRUE(pending.add("/b", 5));
  EXPECT_EQ(pending.totals().files, 2U);
  EXPECT_EQ(pending.totals().bytes, 35U);
  pending.remove("/a");
  pending.remove("/unknown");
  EXPECT_EQ(pending.totals().bytes, 5U);
}

TEST(PendingFilesTest, AScanDropsWhatItDidNotSeeBelowItsPlace) {
  PendingFiles pending;
  for (const char* path : {"/d/a", "/d/b", "/d/b.txt", "/da"}) {
    pending.add(path, 1);
  }
  const std::uint32_t scan = pending.beginScan();
  pending.add("/d/a", 1);
  pending.endScan("/d", scan);
  EXPECT_TRUE(pending.contains("/d/a"));
  EXPECT_FALSE(pending.contains("/d/b"));
  EXPECT_TRUE(pending.contains("/da")) << "it lies elsewhere";
  EXPECT_EQ(pending.totals().bytes, 2U);
}

TEST(PendingFilesTest, NobodysSizesSpoilTheSum) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();  // that a file can have
  PendingFiles pending;
  pending.add("/small", 7);
  for (const char* path : {"/a", "/b", "/c"}) {
    pending.add(path, kLargest);
  }
  EXPECT_EQ(pending.totals().bytes, std::numeric_limits<std::uint64_t>::max());
  pending.add("/a", 1);
  EXPECT_EQ(pending.totals().bytes, std::numeric_limits<std::uint64_t>::max());
  pending.remove("/b");
  pending.endScan("/c", pending.beginScan());
  EXPECT_EQ(pending.totals().bytes, 8U);
}

TEST(PendingFilesTest, AVisitComesToEachFileAndMayUseTheList) {
  PendingFiles pending;
  for (int file = 0; file < 2'500; ++file) {
    pending.add("/d/" + std::to_string(file), 1);
  }
  std::set<std::string> seen;
  pending.visit([&](const PendingFiles::File& file) {
    EXPECT_TRUE(pending.contains(file.path));
    return seen.insert(file.path).second;
  });
  EXPECT_EQ(seen.size(), 2'500U);
  int visits = 0;
  pending.visit([&](const PendingFiles::File&) { return ++visits < 3; });
  EXPECT_EQ(visits, 3);
}

TEST(PendingFilesTest, PreferredFilesComeInTheirOrder) {
  PendingFiles pending;
  for (const char* path : {"/a", "/b", "/c"}) {
    pending.add(path, 1);
  }
  pending.prefer("/c", 7);
  pending.preferNext("/a");
  pending.preferNext("/c");
  pending.preferNext("/not-pending");
  const std::vector<PendingFiles::File> files = pending.waitingPreferred();
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].path, "/c");
  EXPECT_EQ(files[1].path, "/a");
  pending.endPreference("/c");
  EXPECT_FALSE(pending.isPreferred("/c"));
}

TEST(PendingFilesTest, KnowsWhetherSomethingWaitsBelowAFolder) {
  PendingFiles pending;
  pending.add("/d/x", 1);
  EXPECT_TRUE(pending.containsBelow("/"));
  EXPECT_TRUE(pending.containsBelow("/d"));
  EXPECT_FALSE(pending.containsBelow("/d/x"));
  EXPECT_FALSE(pending.containsBelow("/c"));
}

}  // namespace
}  // namespace keldane
