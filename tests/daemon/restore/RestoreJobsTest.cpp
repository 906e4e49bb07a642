#include "daemon/restore/RestoreJobs.h"

#include "tests/daemon/restore/RestoreFixture.h"

namespace keldane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class RestoreJobsTest : public RestoreFixture {};

TEST_F(RestoreJobsTest, RestoresEachVersionOfAFileByteByByte) {
  const std::string first = noise(300'000);
  write("letter.txt", first);
  const std::uint32_t one = backUp();
  write("letter.txt", "second");
  const std::uint32_t two = backUp({home() + "/letter.txt"});
  EXPECT_EQ(restore(requestFor({"letter.txt"}, one)).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(target() + "/letter.txt"), first);
  EXPECT_EQ(restore(requestFor({"letter.txt"}, two)).restored, 1U);
  EXPECT_EQ(readWhole(target() + "/letter (restored).txt"), "second");
  EXPECT_EQ(restore(requestFor({"letter.txt"})).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(target() + "/letter (restored 2).txt"), "second");
}

TEST_F(RestoreJobsTest, RestoresAFolderWithAllThatIsInItFromOneSnapshotAtOnce) {
  write("docs/a.txt", "alpha");
  write("docs/deep/b.txt", "beta");
  std::filesystem::create_directories(home() + "/docs/empty");
  std::filesystem::create_symlink("../a.txt", home() + "/docs/deep/link");
  std::filesystem::create_hard_link(home() + "/docs/a.txt", home() + "/docs/deep/hard");
  std::filesystem::permissions(home() + "/docs/deep", std::filesystem::perms(0750));
  const timespec times[] = {{1'000'000'000, 0}, {1'000'000'000, 123'456'789}};
  utimensat(AT_FDCWD, (home() + "/docs/a.txt").c_str(), times, 0);
  utimensat(AT_FDCWD, (home() + "/docs/deep").c_str(), times, 0);
  ASSERT_EQ(setxattr((home() + "/docs/a.txt").c_str(), "user.note", "kept", 4, 0), 0);
  backUp();
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::done);
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_EQ(interfering_.restores, 1);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/a.txt", "docs/deep", "docs/deep/b.txt",
                                                "docs/deep/hard", "docs/deep/link", "docs/empty"));
  EXPECT_EQ(readWhole(target() + "/docs/deep/b.txt"), "beta");
  EXPECT_EQ(std::filesystem::read_symlink(target() + "/docs/deep/link"), "../a.txt");
  EXPECT_EQ(statusOf(target() + "/docs/a.txt").st_ino, statusOf(target() + "/docs/deep/hard").st_ino);
  EXPECT_EQ(statusOf(target() + "/docs/deep").st_mode & 07777, 0750U);
  EXPECT_EQ(nanoseconds(statusOf(target() + "/docs/a.txt").st_mtim), 1'000'000'000'123'456'789);
  EXPECT_EQ(nanoseconds(statusOf(target() + "/docs/deep").st_mtim), 1'000'000'000'123'456'789);
  char value[8] = {};
  EXPECT_EQ(getxattr((target() + "/docs/a.txt").c_str(), "user.note", value, sizeof(value)), 4);
  EXPECT_STREQ(value, "kept");
}

TEST_F(RestoreJobsTest, PutsAFolderTogetherFromSeveralSnapshots) {
  write("docs/old.txt", "old");
  write("docs/both.txt", "before");
  std::filesystem::create_directories(home() + "/docs/empty");
  backUp();
  write("docs/both.txt", "after, and longer");
  write("docs/new/new.txt", "new");
  backUp({home() + "/docs/both.txt", home() + "/docs/new/new.txt"});
  const timespec times[] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  utimensat(AT_FDCWD, (home() + "/docs/new").c_str(), times, 0);
  EXPECT_EQ(restore(requestFor({"docs"})).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/both.txt", "docs/empty", "docs/new",
                                                "docs/new/new.txt", "docs/old.txt"));
  EXPECT_EQ(readWhole(target() + "/docs/both.txt"), "after, and longer");
  EXPECT_EQ(readWhole(target() + "/docs/old.txt"), "old");
}

TEST_F(RestoreJobsTest, RestoresAFolderAsItWasAtABackup) {
  write("docs/changed.txt", "one");
  write("docs/gone.txt", "gone");
  const std::uint32_t one = backUp();
  write("docs/changed.txt", "two");
  write("docs/later.txt", "later");
  remove("docs/gone.txt");
  const std::uint32_t two = backUp();
  RestoreRequest request = requestFor({"docs"}, one);
  restore(request);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/changed.txt", "docs/gone.txt"));
  EXPECT_EQ(readWhole(target() + "/docs/changed.txt"), "one");
  request = requestFor({"docs"}, two);
  request.target = folder_ / "other";
  restore(request);
  EXPECT_THAT(contentsOf(request.target), ElementsAre("docs", "docs/changed.txt", "docs/later.txt"));
  EXPECT_EQ(readWhole(request.target + "/docs/changed.txt"), "two");
}

TEST_F(RestoreJobsTest, RestoresWhatWasThereBeforeATime) {
  write("docs/a.txt", "one");
  backUp();
  const double then = clock_;
  write("docs/a.txt", "two!");
  write("docs/b.txt", "new");
  backUp();
  RestoreRequest request = requestFor({"docs"});
  request.before = then;
  restore(request);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/a.txt"));
  EXPECT_EQ(readWhole(target() + "/docs/a.txt"), "one");
}

TEST_F(RestoreJobsTest, RestoresADeletedFolderToItsOwnPlaceWithTheFoldersAboveIt) {
  write("docs/deep/a.txt", "alpha");
  std::filesystem::create_directories(home() + "/docs/deep/empty");
  std::filesystem::permissions(home() + "/docs", std::filesystem::perms(0711));
  const timespec times[] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  utimensat(AT_FDCWD, (home() + "/docs").c_str(), times, 0);
  write("other.txt", "other");
  backUp();
  remove("docs");
  backUp();
  RestoreRequest request = requestFor({"docs/deep"});
  request.target.clear();
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(home()),
              ElementsAre("docs", "docs/deep", "docs/deep/a.txt", "docs/deep/empty", "other.txt"));
  EXPECT_EQ(statusOf(home() + "/docs").st_mode & 07777, 0711U);
  EXPECT_EQ(statusOf(home() + "/docs").st_mtim.tv_sec, 1'000'000'000);
}

TEST_F(RestoreJobsTest, TakesEveryNameAsItIs) {
  const std::vector<std::string> names = {"a*b",         "what?",       "[abc]",     "back\\slash", " blank ",
                                          "-dash",       "new\nline",   "(x): y: z", "{a,b}",       "$(id)",
                                          "caf\xc3\xa9", "raw\xff\xfe", "a b"};
  for (const std::string& name : names) {
    write("odd/" + name, "in " + name);
    write("odd/folder " + name + "/file", "deep in " + name);
  }
  backUp();
  std::vector<std::string> items;
  for (const std::string& name : names) {
    items.push_back("odd/" + name);
    items.push_back("odd/folder " + name);
  }
  const RestoreReport report = restore(requestFor(items));
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_EQ(report.restored, 2 * names.size());
  for (const std::string& name : names) {
    EXPECT_EQ(readWhole(target() + "/" + name), "in " + name);
    EXPECT_EQ(readWhole(target() + "/folder " + name + "/file"), "deep in " + name);
  }
}

TEST_F(RestoreJobsTest, KeepsReplacesOrSkipsWhatIsThere) {
  write("a.txt", "stored");
  write("b/c.txt", "stored");
  backUp();
  const auto prepare = [&] {
    std::filesystem::remove_all(target());
    folder_.write("target/a.txt", "mine");
    folder_.write("target/b/c.txt", "mine");
    folder_.write("target/b/other.txt", "mine");
  };
  prepare();
  RestoreRequest request = requestFor({"a.txt", "b"});
  EXPECT_EQ(restore(request).restored, 2U);
  EXPECT_THAT(contentsOf(target()),
              ElementsAre("a (restored).txt", "a.txt", "b", "b/c (restored).txt", "b/c.txt", "b/other.txt"));
  EXPECT_EQ(readWhole(target() + "/a.txt") + readWhole(target() + "/b/c.txt"), "minemine");
  prepare();
  request.conflict = Conflict::replace;
  EXPECT_EQ(restore(request).restored, 2U);
  EXPECT_THAT(contentsOf(target()), ElementsAre("a.txt", "b", "b/c.txt", "b/other.txt"));
  EXPECT_EQ(readWhole(target() + "/a.txt") + readWhole(target() + "/b/c.txt"), "storedstored");
  prepare();
  request.conflict = Conflict::skip;
  const RestoreReport report = restore(request);
  EXPECT_EQ(report.skipped, 2U);
  EXPECT_EQ(report.status, RestoreStatus::done);
  EXPECT_EQ(readWhole(target() + "/a.txt") + readWhole(target() + "/b/c.txt"), "minemine");
}

TEST_F(RestoreJobsTest, FollowsNoLinkAtTheTarget) {
  write("docs/a.txt", "stored");
  backUp();
  std::filesystem::create_directories(folder_ / "elsewhere");
  std::filesystem::create_directories(target());
  std::filesystem::create_directory_symlink(folder_ / "elsewhere", target() + "/docs");
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::failed);
  ASSERT_EQ(report.problems.size(), 1U);
  EXPECT_THAT(report.problems[0], HasSubstr("symbolic link"));
  EXPECT_THAT(contentsOf(folder_ / "elsewhere"), IsEmpty());
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs"));
}

TEST_F(RestoreJobsTest, ReachesTheTargetItselfThroughLinks) {
  write("a.txt", "stored");
  backUp();
  std::filesystem::create_directories(folder_ / "real");
  std::filesystem::create_directory_symlink(folder_ / "real", target());
  EXPECT_EQ(restore(requestFor({"a.txt"})).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(folder_ / "real/a.txt"), "stored");
}

TEST_F(RestoreJobsTest, ReplacesALinkButNotWhatItLeadsTo) {
  write("a.txt", "stored");
  backUp();
  folder_.write("precious", "mine");
  std::filesystem::create_directories(target());
  std::filesystem::create_symlink(folder_ / "precious", target() + "/a.txt");
  RestoreRequest request = requestFor({"a.txt"});
  request.conflict = Conflict::replace;
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_FALSE(std::filesystem::is_symlink(target() + "/a.txt"));
  EXPECT_EQ(readWhole(target() + "/a.txt"), "stored");
  EXPECT_EQ(readWhole(folder_ / "precious"), "mine");
}

TEST_F(RestoreJobsTest, NeverReplacesAFolderByAFile) {
  write("a", "stored");
  backUp();
  folder_.write("target/a/mine.txt", "mine");
  RestoreRequest request = requestFor({"a"});
  request.conflict = Conflict::replace;
  const RestoreReport report = restore(request);
  EXPECT_EQ(report.status, RestoreStatus::failed);
  EXPECT_EQ(readWhole(target() + "/a/mine.txt"), "mine");
}

TEST_F(RestoreJobsTest, RestoresAnItemToAPathOfItsOwn) {
  write("docs/a.txt", "stored");
  backUp();
  RestoreRequest request = requestFor({"docs/a.txt"});
  request.target.clear();
  request.exactPath = folder_ / "place/renamed.txt";
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(request.exactPath), "stored");
  request.items = {{home() + "/docs", 0}};
  request.exactPath = folder_ / "place/folder";
  folder_.write("place/folder/mine.txt", "mine");
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(request.exactPath), ElementsAre("a.txt", "mine.txt"));
}

TEST_F(RestoreJobsTest, GivesItemsOfOneNameDifferentNames) {
  write("one/a.txt", "one");
  write("two/a.txt", "two");
  backUp();
  RestoreRequest request = requestFor({"one/a.txt", "two/a.txt"});
  request.conflict = Conflict::replace;
  EXPECT_EQ(restore(request).restored, 2U);
  EXPECT_EQ(readWhole(target() + "/a.txt"), "one");
  EXPECT_EQ(readWhole(target() + "/a (restored).txt"), "two");
}

TEST_F(RestoreJobsTest, RestoresSpecialFilesAsRootAndElseSaysThatItCannot) {
  write("docs/a.txt", "stored");
  ASSERT_EQ(mkfifo((home() + "/docs/pipe").c_str(), 0640), 0);
  backUp();
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(readWhole(target() + "/docs/a.txt"), "stored");
  if (geteuid() == 0) {
    EXPECT_THAT(report.problems, IsEmpty());
    EXPECT_TRUE(S_ISFIFO(statusOf(target() + "/docs/pipe").st_mode));
  } else {
    EXPECT_THAT(report.problems, ElementsAre(HasSubstr("docs/pipe is not restored")));
    EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/a.txt"));
  }
}

TEST_F(RestoreJobsTest, RestoresAccessLists) {
  const std::string path = write("docs/a.txt", "stored");
  // An access control list of version 2, with entries for the owner, user 4123456, the group, the mask and
  // others.
  constexpr char kList[] =
      "\2\0\0\0"
      "\1\0\6\0\377\377\377\377"
      "\2\0\6\0\x40\xeb\x3e\0"
      "\4\0\4\0\377\377\377\377"
      "\20\0\6\0\377\377\377\377"
      "\40\0\0\0\377\377\377\377";
  constexpr std::size_t kSize = sizeof(kList) - 1;
  if (setxattr(path.c_str(), "system.posix_acl_access", kList, kSize, 0) != 0) {
    GTEST_SKIP() << "This file system has no access lists: " << std::strerror(errno);
  }
  backUp();
  EXPECT_EQ(restore(requestFor({"docs"})).status, RestoreStatus::done);
  char value[128] = {};
  ASSERT_EQ(getxattr((target() + "/docs/a.txt").c_str(), "system.posix_acl_access", value, sizeof(value)),
            static_cast<ssize_t>(kSize));
  EXPECT_EQ(std::memcmp(value, kList, kSize), 0);
}

TEST_F(RestoreJobsTest, GivesHolesBack) {
  const std::string path = write("sparse", "");
  {
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(ftruncate(file.get(), 8 << 20), 0);
    ASSERT_EQ(pwrite(file.get(), "end", 3, (8 << 20) - 3), 3);
  }
  backUp();
  EXPECT_EQ(restore(requestFor({"sparse"})).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(target() + "/sparse"), readWhole(path));
  EXPECT_LT(statusOf(target() + "/sparse").st_blocks * 512, 256 * 1024);
}

TEST_F(RestoreJobsTest, RestoresFoldersThatMayNotBeWritten) {
  write("shut/in/a.txt", "alpha");
  std::filesystem::permissions(home() + "/shut/in", std::filesystem::perms(0555));
  std::filesystem::permissions(home() + "/shut", std::filesystem::perms(0555));
  backUp();
  std::filesystem::permissions(home() + "/shut", std::filesystem::perms(0755));
  folder_.write("target/shut/mine.txt", "mine");
  EXPECT_EQ(restore(requestFor({"shut"})).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(target()), ElementsAre("shut", "shut/in", "shut/in/a.txt", "shut/mine.txt"));
  EXPECT_EQ(statusOf(target() + "/shut/in").st_mode & 07777, 0555U);
  EXPECT_EQ(statusOf(target() + "/shut").st_mode & 07777, 0755U);
}

TEST_F(RestoreJobsTest, RefusesWhatItCannotTake) {
  std::string refusal;
  RestoreRequest request = requestFor({"a"});
  request.items[0].path = "relative";
  EXPECT_EQ(jobs_->add(request, &refusal), 0U);
  EXPECT_THAT(refusal, HasSubstr("not usable"));
  EXPECT_EQ(jobs_->report(1).status, RestoreStatus::unknown);
  EXPECT_FALSE(jobs_->userOf(1));
}

}  // namespace
}  // namespace keldane::testing
