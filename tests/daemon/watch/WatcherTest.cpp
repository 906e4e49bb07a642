// Tests with real folders and the kernel's own events.
#include "daemon/watch/Watcher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/process/PrivateMounts.h"

namespace keldane {
namespace {

namespace fs = std::filesystem;
using testing::eventually;
using testing::hasPrivateMounts;
using testing::mountMemory;
using testing::TemporaryFolder;

constexpr auto kEntry = Change::Extent::entry;
constexpr auto kFolder = Change::Extent::folder;
constexpr auto kTree = Change::Extent::tree;

class WatcherTest : public ::testing::Test {
 protected:
  WatcherTest() : WatcherTest(FolderWatches::shareOfWatches()) {}
  explicit WatcherTest(std::size_t mostWatches)
      : watcher_(
            [this](const std::vector<Change>& changes) {
              const std::lock_guard guard(mutex_);
              told_.insert(told_.end(), changes.begin(), changes.end());
            },
            mostWatches) {}
  void begin(const std::vector<std::string>& places) {
    watcher_.setPlaces([&] { return places; });
    for (const std::string& place : places) {
      watchAll(place);
    }
    watcher_.start();
  }
  /// Watches every folder, as a scan does.
  void watchAll(const std::string& place) {
    if (fs::is_directory(fs::symlink_status(place))) {
      watcher_.watch(place);
      for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
        if (entry.is_directory() && !entry.is_symlink()) {
          watcher_.watch(entry.path());
        }
      }
    }
  }
  bool isTold(Change::Extent extent, const std::string& path) {
    return eventually([&] {
      const std::lock_guard guard(mutex_);
      return std::find(told_.begin(), told_.end(), Change{extent, path}) != told_.end();
    });
  }
  void forgetTold() {
    const std::lock_guard guard(mutex_);
    told_.clear();
  }
  /// Makes a later change, waits for its report, and returns everything that was reported until then.
  std::vector<Change> toldUntil(const std::string& marker) {
    const std::string file = folder_ / ("f/" + marker);
    folder_.write("f/" + marker, "x");
    EXPECT_TRUE(isTold(kEntry, file));
    const std::lock_guard guard(mutex_);
    return told_;
  }

  TemporaryFolder folder_;
  std::mutex mutex_;
  std::vector<Change> told_;
  Watcher watcher_;
};

/// Uses a watcher that has a watch for the folder above its place and none for the folders below.
class WithoutWatchesTest : public WatcherTest {
 protected:
  WithoutWatchesTest() : WatcherTest(0) {}
  /// Begins on a separate file system, whose changes can be watched as a whole. Returns false where this user
  /// may not mount.
  bool beginOnDisk() {
    fs::create_directory(folder_ / "f");
    if (!hasPrivateMounts() || !mountMemory(folder_ / "f")) {
      return false;
    }
    folder_.write("f/sub/a", "1");
    begin({folder_ / "f"});
    return true;
  }
};

TEST_F(WatcherTest, TellsOfFilesThatAreMadeChangedTouchedMovedAndDeleted) {
  const std::string file = folder_.write("f/a", "1");
  begin({folder_ / "f"});
  folder_.write("f/b", "new");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/b"));
  forgetTold();
  folder_.write("f/a", "2");
  EXPECT_TRUE(isTold(kEntry, file));
  forgetTold();
  chmod(file.c_str(), 0600);
  EXPECT_TRUE(isTold(kEntry, file));
  forgetTold();
  fs::rename(file, folder_ / "f/c");
  EXPECT_TRUE(isTold(kEntry, file));
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/c"));
  forgetTold();
  fs::remove(folder_ / "f/c");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/c"));
}

TEST_F(WatcherTest, TellsOfAFileThatIsWrittenAndNotClosed) {
  folder_.write("f/log", "");
  begin({folder_ / "f"});
  std::ofstream log(folder_ / "f/log");
  log << "a line" << std::flush;
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/log"));
}

TEST_F(WatcherTest, ANewFolderIsATreeAndIsWatchedOnceSomebodyLooked) {
  folder_.write("f/a", "1");
  begin({folder_ / "f"});
  fs::create_directories(folder_ / "f/new/deep");
  ASSERT_TRUE(isTold(kTree, folder_ / "f/new"));
  EXPECT_FALSE(watcher_.isKnown(folder_ / "f/new"));
  watchAll(folder_ / "f/new");
  folder_.write("f/new/deep/x", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/new/deep/x"));
}

TEST_F(WatcherTest, AMovedFolderIsToldAtBothPathsAndWatchedAtItsNewOne) {
  folder_.write("f/old/sub/a", "1");
  begin({folder_ / "f"});
  fs::rename(folder_ / "f/old", folder_ / "f/new");
  ASSERT_TRUE(isTold(kTree, folder_ / "f/old"));
  ASSERT_TRUE(isTold(kTree, folder_ / "f/new"));
  EXPECT_FALSE(watcher_.isKnown(folder_ / "f/old/sub"));
  watchAll(folder_ / "f/new");
  forgetTold();
  folder_.write("f/new/sub/b", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/new/sub/b"));
  for (const Change& change : told_) {
    EXPECT_FALSE(change.path.starts_with(folder_ / "f/old")) << change.path;
  }
}

TEST_F(WatcherTest, AFolderThatIsDeletedAndMadeAgainIsWatchedAgain) {
  folder_.write("f/sub/a", "1");
  begin({folder_ / "f"});
  fs::remove_all(folder_ / "f/sub");
  fs::create_directory(folder_ / "f/sub");
  ASSERT_TRUE(isTold(kTree, folder_ / "f/sub"));
  EXPECT_TRUE(eventually([&] { return !watcher_.isKnown(folder_ / "f/sub"); }));
  watchAll(folder_ / "f/sub");
  folder_.write("f/sub/b", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/sub/b"));
}

TEST_F(WatcherTest, APlaceItselfMayGoAndComeBackWithTheFoldersAboveIt) {
  folder_.write("up/f/a", "1");
  begin({folder_ / "up/f"});
  fs::rename(folder_ / "up", folder_ / "away");
  ASSERT_TRUE(isTold(kTree, folder_ / "up/f"));
  forgetTold();
  fs::create_directories(folder_ / "up/f");
  ASSERT_TRUE(isTold(kTree, folder_ / "up/f"));
  watchAll(folder_ / "up/f");
  folder_.write("up/f/b", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "up/f/b"));
}

TEST_F(WatcherTest, APlaceThatIsAFileIsToldAndItsNeighboursAreNot) {
  folder_.write("f/a", "1");
  folder_.write("g/a", "1");
  begin({folder_ / "f", folder_ / "g/a"});
  folder_.write("g/b", "2");
  fs::create_directory(folder_ / "h");
  folder_.write("g/a", "2");
  ASSERT_TRUE(isTold(kEntry, folder_ / "g/a"));
  for (const Change& change : toldUntil("marker")) {
    EXPECT_NE(change.path, folder_ / "g/b");
    EXPECT_NE(change.path, folder_ / "h");
  }
}

TEST_F(WatcherTest, TheAttributesOfAFolderAreToldAsTheFolder) {
  folder_.write("f/sub/a", "1");
  begin({folder_ / "f"});
  chmod((folder_ / "f/sub").c_str(), 0700);
  EXPECT_TRUE(isTold(kFolder, folder_ / "f/sub"));
}

TEST_F(WatcherTest, WhatIsForgottenOrNoPlaceAnyMoreIsNotTold) {
  folder_.write("f/sub/a", "1");
  folder_.write("g/a", "1");
  begin({folder_ / "f", folder_ / "g"});
  watcher_.forget(folder_ / "f/sub");
  watcher_.setPlaces([&] { return std::vector<std::string>{folder_ / "f"}; });
  folder_.write("f/sub/b", "1");
  folder_.write("g/b", "1");
  for (const Change& change : toldUntil("marker")) {
    EXPECT_NE(change.path, folder_ / "f/sub/b");
    EXPECT_NE(change.path, folder_ / "g/b");
  }
}

TEST_F(WatcherTest, ALinkToAFolderIsNotFollowed) {
  folder_.write("f/a", "1");
  folder_.write("elsewhere/a", "1");
  fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "f/link");
  begin({folder_ / "f"});
  watcher_.watch(folder_ / "f/link");
  folder_.write("elsewhere/b", "1");
  for (const Change& change : toldUntil("marker")) {
    EXPECT_EQ(change.path.find("link"), std::string::npos) << change.path;
  }
}

TEST_F(WatcherTest, ManyChangesAreAllFound) {
  folder_.write("f/a", "1");
  begin({folder_ / "f"});
  for (int i = 0; i < 3000; ++i) {
    folder_.write("f/" + std::to_string(i), "1");
  }
  EXPECT_TRUE(isTold(kFolder, folder_ / "f"));
}

TEST_F(WatcherTest, AQueueThatOverflowsHasEverythingLookedAtAndSaysSoOnce) {
  const testing::LogCapture log;
  folder_.write("f/a", "1");
  folder_.write("f/b", "1");
  watcher_.setPlaces([&] { return std::vector<std::string>{folder_ / "f"}; });
  watchAll(folder_ / "f");
  std::size_t most = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  // Nobody reads yet, and the kernel merges equal events.
  for (std::size_t i = 0; i < most + 10; ++i) {
    chmod((folder_ / (i % 2 == 0 ? "f/a" : "f/b")).c_str(), 0600);
  }
  watcher_.start();
  EXPECT_TRUE(isTold(kTree, folder_ / "f"));
  EXPECT_TRUE(log.hasPart("faster than the system can tell"));
}

TEST_F(WatcherTest, AMountAndItsEndAreTold) {
  if (!hasPrivateMounts()) {
    GTEST_SKIP() << "this user may not mount";
  }
  folder_.write("f/disk/hidden", "1");
  begin({folder_ / "f"});
  ASSERT_TRUE(mountMemory(folder_ / "f/disk"));
  ASSERT_TRUE(isTold(kTree, folder_ / "f/disk"));
  watchAll(folder_ / "f/disk");
  forgetTold();
  folder_.write("f/disk/b", "1");
  ASSERT_TRUE(isTold(kEntry, folder_ / "f/disk/b"));
  ASSERT_EQ(umount((folder_ / "f/disk").c_str()), 0);
  ASSERT_TRUE(isTold(kTree, folder_ / "f/disk"));
  watchAll(folder_ / "f/disk");
  folder_.write("f/disk/c", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/disk/c"));
}

TEST_F(WatcherTest, WhatTheKernelCannotTellIsKeptAndSaidOnce) {
  const testing::LogCapture log;
  watcher_.setPlaces([&] { return std::vector<std::string>{"/proc"}; });
  EXPECT_FALSE(watcher_.watch("/proc/self"));
  EXPECT_TRUE(watcher_.watch("/proc/self"));
  EXPECT_FALSE(watcher_.watch("/proc/sys"));
  EXPECT_EQ(watcher_.unwatchedAfter("", 10), (std::vector<std::string>{"/proc/self", "/proc/sys"}));
  EXPECT_EQ(watcher_.unwatchedAfter("/proc/self", 10), std::vector<std::string>{"/proc/sys"});
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(WithoutWatchesTest, AWholeFileSystemTellsOfFilesAndFolders) {
  if (!beginOnDisk()) {
    GTEST_SKIP() << "this user may not mount";
  }
  EXPECT_TRUE(watcher_.unwatchedAfter("", 10).empty());
  folder_.write("f/sub/b", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/sub/b"));
  forgetTold();
  chmod((folder_ / "f/sub/a").c_str(), 0600);
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/sub/a"));
  chmod((folder_ / "f/sub").c_str(), 0700);
  EXPECT_TRUE(isTold(kFolder, folder_ / "f/sub"));
  fs::create_directories(folder_ / "f/new/deep");
  ASSERT_TRUE(isTold(kTree, folder_ / "f/new"));
  watchAll(folder_ / "f/new");
  forgetTold();
  folder_.write("f/new/deep/x", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/new/deep/x"));
  fs::rename(folder_ / "f/new", folder_ / "f/moved");
  EXPECT_TRUE(isTold(kTree, folder_ / "f/new"));
  EXPECT_TRUE(isTold(kTree, folder_ / "f/moved"));
  fs::remove_all(folder_ / "f/sub");
  EXPECT_TRUE(isTold(kTree, folder_ / "f/sub"));
}

TEST_F(WithoutWatchesTest, AFileSystemThatIsToldOfCanBeUnmountedAndComeBack) {
  if (!beginOnDisk()) {
    GTEST_SKIP() << "this user may not mount";
  }
  folder_.write("f/sub/b", "1");
  ASSERT_TRUE(isTold(kEntry, folder_ / "f/sub/b"));
  ASSERT_EQ(umount((folder_ / "f").c_str()), 0);
  ASSERT_TRUE(isTold(kTree, folder_ / "f"));
  forgetTold();
  ASSERT_TRUE(mountMemory(folder_ / "f"));
  ASSERT_TRUE(isTold(kTree, folder_ / "f"));
  watchAll(folder_ / "f");
  folder_.write("f/c", "1");
  EXPECT_TRUE(isTold(kEntry, folder_ / "f/c"));
}

TEST_F(WithoutWatchesTest, AQueueOfAFileSystemThatOverflowsHasEverythingLookedAt) {
  if (!hasPrivateMounts()) {
    GTEST_SKIP() << "this user may not mount";
  }
  const testing::LogCapture log;
  fs::create_directory(folder_ / "f");
  ASSERT_TRUE(mountMemory(folder_ / "f"));
  folder_.write("f/a", "1");
  watcher_.setPlaces([&] { return std::vector<std::string>{folder_ / "f"}; });
  watchAll(folder_ / "f");
  std::size_t most = 0;
  std::ifstream("/proc/sys/fs/fanotify/max_queued_events") >> most;
  for (std::size_t i = 0; i < most + 10; ++i) {  // nobody reads yet
    const std::string name = folder_ / ("f/" + std::to_string(i));
    ASSERT_EQ(link((folder_ / "f/a").c_str(), name.c_str()), 0);
    ASSERT_EQ(unlink(name.c_str()), 0);
  }
  watcher_.start();
  EXPECT_TRUE(isTold(kTree, folder_ / "f"));
  EXPECT_TRUE(log.hasPart("faster than the system can tell"));
}

TEST_F(WithoutWatchesTest, WhoHasNoRightsIsToldWhichFoldersAreLeft) {
  if (getuid() != 0) {
    GTEST_SKIP() << "only root has rights to give up";
  }
  const testing::LogCapture log;
  folder_.write("f/sub/a", "1");
  const auto left = [&] {
    Watcher watcher([](const std::vector<Change>&) {}, 0);
    watcher.setPlaces([&] { return std::vector<std::string>{folder_ / "f"}; });
    watcher.watch(folder_ / "f");
    watcher.watch(folder_ / "f/sub");
    watcher.watch(folder_ / "f/sub/a");
    watcher.watch(folder_ / "f/gone");
    return watcher.unwatchedAfter("", 10);
  };
  ASSERT_EQ(chmod((folder_ / "").c_str(), 0755), 0);
  ASSERT_EQ(seteuid(65534), 0);
  const std::vector<std::string> folders = left();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(folders, (std::vector<std::string>{folder_ / "f", folder_ / "f/sub"}));
  EXPECT_TRUE(log.hasPart("The system gives no more watches"));
}

}  // namespace
}  // namespace keldane
