#include "daemon/scan/Scanner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <climits>
#include <filesystem>

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/PrivateMounts.h"

namespace keldane {
namespace {

namespace fs = std::filesystem;
using testing::hasPrivateMounts;
using testing::mountMemory;
using testing::TemporaryFolder;

constexpr const char* kTag = "Signature: 8a477f597d28d172789f06886806bc55\n# made by a build";

/// While it exists, even root's process may read only files whose mode allows it.
class WithoutPrivileges {
 public:
  WithoutPrivileges() {
    syscall(SYS_capget, &header_, before_);
    __user_cap_data_struct none[2] = {before_[0], before_[1]};
    none[0].effective &= ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH));
    syscall(SYS_capset, &header_, none);
  }
  ~WithoutPrivileges() { syscall(SYS_capset, &header_, before_); }

 private:
  __user_cap_header_struct header_ = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct before_[2] = {};
};

class ScannerTest : public ::testing::Test {
 protected:
  ScannerTest() { fs::create_directories(folder_ / "f"); }
  bool scan(const std::string& place = "f") { return scanner_->scan(path(place), never_); }
  std::string path(const std::string& name) const { return folder_ / name; }
  bool waits(const std::string& name) const { return pending_.contains(path(name)); }
  /// Records all pending files as stored.
  void store() {
    std::vector<StoredFile> stored;
    pending_.visit([&](const PendingFiles::File& file) {
      stored.push_back({file.path, fileStateOf(*statusOf(file.path))});
      pending_.remove(file.path);
      return true;
    });
    const std::uint32_t number = store_.takeNumber();
    store_.addSnapshot({number, "a snapshot" + std::to_string(number), 1000.0 + number, false, {}}, stored,
                       {});
  }
  bool isRemoved(const std::string& name) { return store_.record(path(name))->removed; }

  TemporaryFolder folder_;
  Store store_{folder_ / "store.sqlite"};
  RuleBook rules_{store_, "/", {}};
  PendingFiles pending_;
  std::unique_ptr<Scanner> scanner_ = std::make_unique<Scanner>(store_, rules_, pending_);
  const std::atomic<bool> never_ = false;
};

TEST_F(ScannerTest, FindsWhatIsSelectedAndNotStored) {
  folder_.write("f/a", "1");
  folder_.write("f/sub/b", "22");
  folder_.write("f/out/c", "1");
  fs::create_symlink("nowhere", path("f/link"));
  ASSERT_EQ(mkfifo(path("f/pipe").c_str(), 0600), 0);
  rules_.setRule(path("f"), true);
  rules_.setRule(path("f/out"), false);
  EXPECT_TRUE(scan());
  EXPECT_EQ(pending_.totals().files, 3U);
  EXPECT_TRUE(waits("f/a") && waits("f/sub/b") && waits("f/link"));
  EXPECT_FALSE(scan()) << "nothing new";
  store();
  EXPECT_FALSE(scan());
  EXPECT_EQ(pending_.totals().files, 0U);
}

TEST_F(ScannerTest, ManyFoldersAreReadAheadAndNoneIsLost) {
  constexpr int kFolders = 300;
  for (int folder = 0; folder < kFolders; ++folder) {
    const std::string name = "f/" + std::to_string(folder % 40) + "/deep/" + std::to_string(folder);
    folder_.write(name + "/a", "1");
    folder_.write(name + "/b", "22");
  }
  folder_.write("f/7/deep/out/CACHEDIR.TAG", kTag);
  folder_.write("f/7/deep/out/x", "1");
  rules_.setRule(path("f"), true);
  EXPECT_TRUE(scan());
  EXPECT_EQ(pending_.totals().files, 2U * kFolders);
  EXPECT_EQ(pending_.totals().bytes, 3U * kFolders);
  store();
  fs::remove_all(path("f/3"));
  folder_.write("f/11/deep/11/a", "changed");
  EXPECT_TRUE(scan());
  EXPECT_EQ(pending_.totals().files, 1U);
  EXPECT_TRUE(waits("f/11/deep/11/a"));
  EXPECT_TRUE(isRemoved("f/3/deep/3/a"));
}

TEST_F(ScannerTest, AFolderAheadThatHoldsMuchDelaysTheOthers) {
  constexpr int kFolders = 18, kFiles = 600;
  for (int folder = 0; folder < kFolders; ++folder) {
    for (int file = 0; file < kFiles; ++file) {
      folder_.write("f/" + std::to_string(folder) + "/" + std::to_string(file), "");
    }
  }
  rules_.setRule(path("f"), true);
  EXPECT_TRUE(scan());
  EXPECT_EQ(pending_.totals().files, static_cast<std::uint64_t>(kFolders * kFiles));
}

TEST_F(ScannerTest, AWalkThatIsGivenUpLeavesNoThread) {
  for (int folder = 0; folder < 100; ++folder) {
    folder_.write("f/" + std::to_string(folder) + "/a", "1");
  }
  rules_.setRule(path("f"), true);
  {
    Scanner::Walk walk = scanner_->begin(path("f"));
    scanner_->step(walk, 1);
    scanner_->step(walk, 1);
    EXPECT_NE(walk.ahead, nullptr);
    EXPECT_FALSE(walk.isDone);
  }
  scanner_ = nullptr;
}

TEST_F(ScannerTest, AChangeThatKeepsSizeAndTimeIsFound) {
  const std::string file = folder_.write("f/a", "1");
  rules_.setRule(path("f"), true);
  scan();
  store();
  const struct stat before = *statusOf(file);
  folder_.write("f/a", "2");
  const timespec times[] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const struct stat after = *statusOf(file);
  ASSERT_EQ(nanoseconds(after.st_mtim), nanoseconds(before.st_mtim));
  ASSERT_EQ(after.st_size, before.st_size);
  EXPECT_TRUE(scan());
  EXPECT_TRUE(waits("f/a"));
}

TEST_F(ScannerTest, NotesWhatWasDeletedAndWhatCameBack) {
  folder_.write("f/a", "1");
  folder_.write("f/sub/deep/b", "1");
  folder_.write("f/sub!", "1");
  rules_.setRule(path("f"), true);
  scan();
  store();
  fs::remove(path("f/a"));
  fs::remove_all(path("f/sub"));
  scan();
  EXPECT_TRUE(isRemoved("f/a") && isRemoved("f/sub/deep/b"));
  EXPECT_FALSE(isRemoved("f/sub!"));
  folder_.write("f/a", "again");
  scan();
  EXPECT_FALSE(isRemoved("f/a"));
  fs::remove_all(path("f"));
  scan();
  EXPECT_TRUE(isRemoved("f/a") && isRemoved("f/sub!"));
  EXPECT_EQ(pending_.totals().files, 0U);
}

TEST_F(ScannerTest, WhatIsExcludedIsStillNotedAsRemoved) {
  folder_.write("f/sub/b", "1");
  rules_.setRule(path("f"), true);
  scan();
  store();
  rules_.setRule(path("f/sub"), false);
  fs::remove(path("f/sub/b"));
  scan();
  EXPECT_TRUE(isRemoved("f/sub/b"));
}

TEST_F(ScannerTest, ASingleFolderIsLookedAtWithoutWhatIsBelow) {
  folder_.write("f/a", "1");
  folder_.write("f/sub/b", "1");
  rules_.setRule(path("f"), true);
  std::vector<std::string> below;
  EXPECT_TRUE(scanner_->look(path("f"), below));
  EXPECT_TRUE(waits("f/a"));
  EXPECT_FALSE(waits("f/sub/b"));
  EXPECT_TRUE(below.empty());
}

TEST_F(ScannerTest, AFolderThatCannotBeReadIsAFailureUntilItCan) {
  const testing::LogCapture log;
  folder_.write("f/locked/b", "1");
  rules_.setRule(path("f"), true);
  fs::permissions(path("f/locked"), fs::perms::none);
  {
    const WithoutPrivileges without;
    scan();
    scan();
  }
  EXPECT_EQ(store_.failureCount(), 1U);
  EXPECT_EQ(store_.failure(path("f/locked")), "The folder cannot be read: Permission denied.");
  EXPECT_TRUE(store_.hasFailureBelow(path("f")));
  EXPECT_TRUE(store_.hasFailureBelow(path("f/locked")));
  EXPECT_EQ(log.lines().size(), 1U);
  fs::permissions(path("f/locked"), fs::perms::owner_all);
  scan();
  EXPECT_EQ(store_.failureCount(), 0U);
  EXPECT_TRUE(waits("f/locked/b"));
}

TEST_F(ScannerTest, APathThatIsTooLongIsAFailureOfThatFolder) {
  rules_.setRule(path("f"), true);
  const std::string name(250, 'x');
  std::string deep = path("f");
  const int start = open(".", O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(chdir(deep.c_str()), 0);
  while (deep.size() < PATH_MAX) {
    ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
    ASSERT_EQ(chdir(name.c_str()), 0);
    deep += "/" + name;
  }
  ASSERT_EQ(fchdir(start), 0);
  close(start);
  scan();
  EXPECT_EQ(store_.failure(deep), "Its path is longer than the system allows.");
  EXPECT_TRUE(store_.hasFailureBelow(path("f")));
  fs::remove_all(path("f/" + name + "/" + name));
  scan();
  EXPECT_EQ(store_.failureCount(), 0U);
}

TEST_F(ScannerTest, AFailureOfWhatIsGoneOrExcludedIsOver) {
  const std::string gone = folder_.write("f/gone", "1");
  const std::string excluded = folder_.write("f/excluded", "1");
  const std::string fails = folder_.write("f/fails", "1");
  rules_.setRule(path("f"), true);
  scan();
  for (const std::string& file : {gone, excluded, fails}) {
    store_.setFailure(file, "A reason.", 1);
    scanner_->putOff(file, fileStateOf(*statusOf(file)));
  }
  store_.setFailure(path("f/no-folder/x"), "A reason.", 1);
  fs::remove(gone);
  rules_.setRule(excluded, false);
  scan();
  EXPECT_EQ(store_.failureCount(), 1U);
  EXPECT_TRUE(store_.failure(fails));
  EXPECT_FALSE(waits("f/fails")) << "it is put off";
  fs::remove(fails);
  scanner_->consider(fails);
  EXPECT_EQ(store_.failureCount(), 0U);
}

TEST_F(ScannerTest, AFolderWithAValidCacheTagIsIgnoredAsLongAsItIsThere) {
  folder_.write("f/cache/CACHEDIR.TAG", kTag);
  folder_.write("f/cache/deep/x", "1");
  folder_.write("f/fake/CACHEDIR.TAG", "no signature");
  folder_.write("f/fake/x", "1");
  rules_.setRule(path("f"), true);
  scan();
  EXPECT_FALSE(waits("f/cache/deep/x"));
  EXPECT_FALSE(waits("f/cache/CACHEDIR.TAG"));
  EXPECT_TRUE(waits("f/fake/x"));
  EXPECT_EQ(rules_.decide(path("f/cache/deep/x"), false).ignoring, "@cache-tag");
  fs::remove(path("f/cache/CACHEDIR.TAG"));
  std::vector<std::string> below;
  scanner_->look(path("f/cache"), below);
  EXPECT_EQ(below, std::vector<std::string>{path("f/cache")}) << "all of it is looked at again";
  scan();
  EXPECT_TRUE(waits("f/cache/deep/x"));
}

TEST_F(ScannerTest, APersonsRuleBelowACacheTagCounts) {
  folder_.write("f/cache/CACHEDIR.TAG", kTag);
  folder_.write("f/cache/deep/x", "1");
  folder_.write("f/cache/y", "1");
  rules_.setRule(path("f"), true);
  rules_.setRule(path("f/cache/deep"), true);
  scan();
  EXPECT_TRUE(waits("f/cache/deep/x"));
  EXPECT_FALSE(waits("f/cache/y"));
}

TEST_F(ScannerTest, TheAttributeKeepsFilesAndFoldersOut) {
  const std::string file = folder_.write("f/file", "1");
  folder_.write("f/dir/x", "1");
  folder_.write("f/other", "1");
  if (setxattr(file.c_str(), "user.xdg.robots.backup", "false", 5, 0) != 0) {
    GTEST_SKIP() << "no attributes here";
  }
  setxattr(path("f/dir").c_str(), "user.xdg.robots.backup", "false", 5, 0);
  setxattr(path("f/other").c_str(), "user.xdg.robots.backup", "true", 4, 0);
  rules_.setRule(path("f"), true);
  scan();
  EXPECT_FALSE(waits("f/file"));
  EXPECT_FALSE(waits("f/dir/x"));
  EXPECT_TRUE(waits("f/other"));
  EXPECT_EQ(rules_.decide(file, false).ignoring, "@attribute");
  removexattr(file.c_str(), "user.xdg.robots.backup");
  EXPECT_TRUE(scanner_->consider(file));
  setxattr(file.c_str(), "user.xdg.robots.backup", "false", 5, 0);
  EXPECT_FALSE(scanner_->consider(file));
  EXPECT_FALSE(waits("f/file"));
}

TEST_F(ScannerTest, TheListOfIgnoredThingsHoldsForScans) {
  folder_.write("f/x.iso", "1");
  folder_.write("f/tmp/x", "1");
  folder_.write("f/.local/share/Trash/x", "1");
  rules_.setRule(path("f"), true);
  scan();
  EXPECT_TRUE(waits("f/x.iso"));
  EXPECT_FALSE(waits("f/.local/share/Trash/x"));
  rules_.setIgnored("*.iso\ntmp/");
  scan();
  EXPECT_FALSE(waits("f/x.iso"));
  EXPECT_FALSE(waits("f/tmp/x"));
  EXPECT_TRUE(waits("f/.local/share/Trash/x"));
}

TEST_F(ScannerTest, WhatADiskThatIsNotConnectedHoldsIsNotDeleted) {
  if (!hasPrivateMounts()) {
    GTEST_SKIP() << "this user may not mount";
  }
  fs::create_directories(path("f/disk"));
  folder_.write("f/a", "1");
  rules_.setRule(path("f"), true);
  ASSERT_TRUE(mountMemory(path("f/disk")));
  folder_.write("f/disk/x", "1");
  folder_.write("f/disk/sub/y", "1");
  scan();
  EXPECT_TRUE(waits("f/disk/sub/y")) << "local file systems below an included folder are taken";
  store();
  fs::remove(path("f/disk/x"));
  scan();
  EXPECT_TRUE(isRemoved("f/disk/x")) << "it is connected, so this was deleted";
  ASSERT_EQ(umount(path("f/disk").c_str()), 0);
  scan();
  EXPECT_FALSE(isRemoved("f/disk/sub/y"));
  // This holds even when the mount point has gone, the daemon was restarted, and the folder above goes.
  fs::remove(path("f/disk"));
  scanner_ = std::make_unique<Scanner>(store_, rules_, pending_);
  scan();
  EXPECT_FALSE(isRemoved("f/disk/sub/y"));
  fs::remove_all(path("f"));
  scan();
  EXPECT_FALSE(isRemoved("f/disk/sub/y"));
  EXPECT_TRUE(isRemoved("f/a"));
}

TEST_F(ScannerTest, AFileSystemThatIsNotLocalIsTakenOnlyWhenARuleSaysSo) {
  if (!hasPrivateMounts() || (fs::create_directories(path("f/other")),
                              mount("proc", path("f/other").c_str(), "proc", 0, nullptr) != 0)) {
    GTEST_SKIP() << "this user may not mount";
  }
  rules_.setRule(path("f"), true);
  scan();
  EXPECT_EQ(pending_.totals().files, 0U);
  EXPECT_EQ(rules_.decide(path("f/other/version"), false).ignoring, "@other-file-systems");
  rules_.setRule(path("f/other/fs"), true);
  scan();
  EXPECT_TRUE(rules_.decide(path("f/other/fs/x"), false).selected);
  rules_.setRule(path("f/other/version"), true);
  scan();
  EXPECT_TRUE(waits("f/other/version"));
  ASSERT_EQ(umount(path("f/other").c_str()), 0);
  scan();
  EXPECT_FALSE(rules_.isMarked(path("f/other"), Mark::otherFileSystem));
}

}  // namespace
}  // namespace keldane
