// Work that goes on beside a file that takes very long: a sparse file, which needs no space and an hour to
// read.
#include <gtest/gtest.h>
#include <unistd.h>

#include "daemon/backup/BackupWorker.h"
#include "tests/daemon/backup/BackupFixture.h"

namespace keldane {
namespace {

using testing::eventually;

class LargeFilesTest : public testing::BackupWorkerTest {
 protected:
  std::string endless(const std::string& name, uid_t owner = 0) {
    std::string path = folder_.write("files/" + name, "");
    EXPECT_EQ(truncate(path.c_str(), off_t{10} << 40), 0);
    EXPECT_TRUE(owner == 0 || chown(path.c_str(), owner, owner) == 0);
    return path;
  }
  bool isRead(const std::string& path) {
    return eventually([&] { return worker_.partStored(path).has_value(); });
  }
  void begin(const std::vector<std::string>& wantedInstead = {}) {
    for (const std::string& path : wantedInstead) {
      rules_.setRule(path, true);
    }
    if (wantedInstead.empty()) {
      rules_.setRule(folder_ / "files", true);
    }
    worker_.start();
  }
  void exclude(const std::string& path) {
    rules_.setRule(path, false);
    worker_.reconsider(path);
  }
  std::size_t storedFiles() { return store_.totals().files; }
};

TEST_F(LargeFilesTest, NoOtherFileWaitsForOne) {
  const std::string large = endless("large");
  begin();
  ASSERT_TRUE(isRead(large));
  EXPECT_TRUE(eventually([&] { return storedFiles() == 3; }));
  EXPECT_TRUE(eventually([&] { return worker_.progress().currentFile == large; }));
  const std::string late = folder_.write("files/late", "late");
  worker_.reconsider(late);
  EXPECT_TRUE(eventually([&] { return isStored("late"); }));
  worker_.prioritize(folder_.write("files/a", "preferred"));
  EXPECT_TRUE(eventually([&] { return store_.record(file("a"))->size == 9; }));
  EXPECT_TRUE(worker_.isPending(large));
  EXPECT_TRUE(eventually([&] { return worker_.progress().currentFile == large; }));
}

TEST_F(LargeFilesTest, IsLeftWhenItIsExcluded) {
  const std::string large = endless("large");
  begin();
  ASSERT_TRUE(isRead(large));
  exclude(large);
  EXPECT_FALSE(worker_.isPending(large));
  EXPECT_TRUE(waitUntilDone());
  EXPECT_FALSE(isStored("large"));
  EXPECT_EQ(store_.failureCount(), 0U);
}

TEST_F(LargeFilesTest, IsLeftWhenItsFolderIsExcluded) {
  const std::string large = endless("large");
  begin();
  ASSERT_TRUE(isRead(large));
  exclude(folder_ / "files");
  EXPECT_TRUE(eventually([&] { return !worker_.progress().isStoring; }));
  EXPECT_FALSE(isStored("large"));
}

TEST_F(LargeFilesTest, GoesOnWhenSomethingElseIsExcluded) {
  const std::string large = endless("large");
  begin();
  ASSERT_TRUE(isRead(large));
  const double before = *worker_.partStored(large);
  exclude(file("b"));
  EXPECT_TRUE(eventually([&] { return worker_.partStored(large).value_or(0) > before; }));
}

TEST_F(LargeFilesTest, IsLeftDuringAPause) {
  const std::string large = endless("large");
  begin();
  ASSERT_TRUE(isRead(large));
  pause();
  EXPECT_TRUE(eventually([&] { return !worker_.progress().isStoring; }));
  worker_.setModes({});
  EXPECT_TRUE(isRead(large));
}

TEST_F(LargeFilesTest, APreferredOneComesFirst) {
  const std::string first = endless("first");
  const std::string second = endless("second");
  begin({first});
  ASSERT_TRUE(isRead(first));
  rules_.setRule(second, true);
  worker_.prioritize(second);
  EXPECT_TRUE(isRead(second));
  EXPECT_FALSE(worker_.partStored(first)) << "one large file at a time";
}

TEST_F(LargeFilesTest, APreferredOneGoesWithoutAutomaticBackup) {
  const std::string large = endless("large");
  BackupWorker::Modes modes;
  modes.automatic = false;
  worker_.setModes(modes);
  begin({large});
  ASSERT_TRUE(eventually([&] { return worker_.isPending(large); }));
  worker_.prioritize(large);
  EXPECT_TRUE(isRead(large));
}

TEST_F(LargeFilesTest, OwnersTakeTurns) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  timing_.turn = {};
  BackupWorker worker(store_, rules_, engine_, files_, watch_, keeper_, timing_);
  const std::vector<std::string> files = {endless("1", 1234), endless("2", 1234), endless("3", 5678)};
  rules_.setRule(folder_ / "files", true);
  worker.start();
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(eventually([&] { return worker.partStored(files[2]).has_value(); })) << round;
    EXPECT_TRUE(eventually([&] { return worker.partStored(files[0]) || worker.partStored(files[1]); }))
        << round;
  }
  worker.stop();
  EXPECT_EQ(storedFiles(), 3U) << "the small ones";
}

TEST_F(LargeFilesTest, ALargeFileIsStoredInTheEnd) {
  const std::string large = folder_.write("files/large", "");
  ASSERT_EQ(truncate(large.c_str(), static_cast<off_t>(kLargeFile)), 0);
  begin();
  EXPECT_TRUE(eventually([&] { return isStored("large"); }));
  EXPECT_TRUE(waitUntilDone());
  EXPECT_EQ(storedFiles(), 4U);
  EXPECT_EQ(worker_.partStored(large), std::nullopt);
}

}  // namespace
}  // namespace keldane
