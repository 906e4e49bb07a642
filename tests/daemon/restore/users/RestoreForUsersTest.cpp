// Restores for other users than the daemon's.
#include <sys/syscall.h>

#include "tests/daemon/restore/RestoreFixture.h"

namespace keldane::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr uid_t kUser = 4123456;
constexpr gid_t kGroup = 4123457;
constexpr uid_t kOther = 4123458;

class RestoreForUsersTest : public RestoreFixture {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "Only root can restore for others.";
    }
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(home(), std::filesystem::perms(0777));
    std::filesystem::create_directory(target());
    ASSERT_EQ(chown(target().c_str(), kUser, kGroup), 0);
  }
  /// Writes a file that belongs to a user.
  std::string writeFor(uid_t user, const std::string& name, const std::string& content, mode_t mode = 0644) {
    std::string path = write(name, content);
    for (std::string at = path; at != home(); at = std::filesystem::path(at).parent_path()) {
      EXPECT_EQ(lchown(at.c_str(), user, kGroup), 0);
    }
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }
  RestoreRequest requestOfUser(const std::vector<std::string>& names) const {
    RestoreRequest request = requestFor(names);
    request.user = kUser;
    request.group = kGroup;
    return request;
  }
};

TEST_F(RestoreForUsersTest, RestoresAUsersFilesWithTheirIdsAndWithoutSetuidBits) {
  const std::string path = writeFor(kUser, "docs/tool", "#!", 06755);
  writeFor(kUser, "docs/deep/b.txt", "beta", 0640);
  std::filesystem::create_symlink("tool", home() + "/docs/link");
  ASSERT_EQ(lchown((home() + "/docs/link").c_str(), kUser, kGroup), 0);
  ASSERT_EQ(setxattr(path.c_str(), "user.note", "kept", 4, 0), 0);
  ASSERT_EQ(chmod((home() + "/docs/deep").c_str(), 0750), 0);
  const timespec times[] = {{1'000'000'000, 0}, {1'000'000'000, 5}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
  utimensat(AT_FDCWD, (home() + "/docs/deep").c_str(), times, 0);
  backUp();
  const RestoreReport report = restore(requestOfUser({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::done);
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_THAT(contentsOf(target()),
              ElementsAre("docs", "docs/deep", "docs/deep/b.txt", "docs/link", "docs/tool"));
  const struct stat tool = statusOf(target() + "/docs/tool");
  EXPECT_EQ(tool.st_uid, kUser);
  EXPECT_EQ(tool.st_gid, kGroup);
  EXPECT_EQ(tool.st_mode & 07777, 0755U);
  EXPECT_EQ(nanoseconds(tool.st_mtim), 1'000'000'000'000'000'005);
  EXPECT_EQ(statusOf(target() + "/docs/link").st_uid, kUser);
  EXPECT_EQ(statusOf(target() + "/docs/deep").st_uid, kUser);
  EXPECT_EQ(statusOf(target() + "/docs/deep").st_mode & 07777, 0750U);
  EXPECT_EQ(statusOf(target() + "/docs/deep").st_mtim.tv_sec, 1'000'000'000);
  EXPECT_EQ(readWhole(target() + "/docs/deep/b.txt"), "beta");
  char value[8] = {};
  EXPECT_EQ(getxattr((target() + "/docs/tool").c_str(), "user.note", value, sizeof(value)), 4);
}

TEST_F(RestoreForUsersTest, LeavesOutWhatBelongsToOthersAndDoesNotNameIt) {
  writeFor(kUser, "shared/mine.txt", "mine");
  writeFor(kOther, "shared/secret.txt", "secret");
  writeFor(kOther, "shared/inner/secret.txt", "secret");
  backUp();
  const RestoreReport report = restore(requestOfUser({"shared"}));
  EXPECT_EQ(report.restored, 1U);
  EXPECT_EQ(report.files, 1U);
  EXPECT_THAT(contentsOf(target()), ElementsAre("shared", "shared/mine.txt"));
  EXPECT_THAT(report.problems, ElementsAre("What belongs to other users is left out."));
}

TEST_F(RestoreForUsersTest, RestoresNamesThatAreNoTextUnlessAnotherHasOneThatLooksAlike) {
  writeFor(kUser, "shared/mine\xe9", "mine");
  writeFor(kUser, "shared/both \xe9", "mine");
  writeFor(kOther, "shared/both \xe8", "secret");
  backUp();
  const RestoreReport report = restore(requestOfUser({"shared"}));
  EXPECT_THAT(contentsOf(target()), ElementsAre("shared", "shared/mine\xe9"));
  EXPECT_EQ(readWhole(target() + "/shared/mine\xe9"), "mine");
  EXPECT_THAT(report.problems, ElementsAre("What belongs to other users is left out."));
}

TEST_F(RestoreForUsersTest, RestoresNoVersionThatBelongedToAnother) {
  writeFor(kOther, "a.txt", "of another");
  const std::uint32_t one = backUp();
  writeFor(kUser, "a.txt", "mine now");
  backUp();
  RestoreRequest request = requestOfUser({"a.txt"});
  EXPECT_EQ(restore(request).restored, 1U);
  request.items[0].version = one;
  EXPECT_EQ(restore(request).status, RestoreStatus::failed);
  EXPECT_THAT(contentsOf(target()), ElementsAre("a.txt"));
  EXPECT_EQ(readWhole(target() + "/a.txt"), "mine now");
}

TEST_F(RestoreForUsersTest, WritesNothingWhereTheUserMayNot) {
  writeFor(kUser, "a.txt", "mine");
  backUp();
  std::filesystem::create_directory(folder_ / "shut");
  RestoreRequest request = requestOfUser({"a.txt"});
  request.target = folder_ / "shut";
  RestoreReport report = restore(request);
  EXPECT_EQ(report.status, RestoreStatus::failed);
  EXPECT_THAT(report.problems, Contains(HasSubstr("Permission denied")));
  EXPECT_THAT(contentsOf(request.target), IsEmpty());
  std::filesystem::permissions(request.target, std::filesystem::perms(0700));
  report = restore(request);
  EXPECT_EQ(report.status, RestoreStatus::failed);
  EXPECT_THAT(contentsOf(request.target), IsEmpty());
}

TEST_F(RestoreForUsersTest, KeepsReplacesOrSkipsWhatIsThere) {
  writeFor(kUser, "a.txt", "stored");
  backUp();
  RestoreRequest request = requestOfUser({"a.txt"});
  restore(request);
  restore(request);
  EXPECT_THAT(contentsOf(target()), ElementsAre("a (restored).txt", "a.txt"));
  request.conflict = Conflict::skip;
  EXPECT_EQ(restore(request).skipped, 1U);
  folder_.write("target/a.txt", "mine");
  request.conflict = Conflict::replace;
  restore(request);
  EXPECT_EQ(readWhole(target() + "/a.txt"), "stored");
  EXPECT_THAT(contentsOf(target()), ElementsAre("a (restored).txt", "a.txt"));
}

TEST_F(RestoreForUsersTest, FollowsNoLinkAtTheTarget) {
  writeFor(kUser, "docs/a.txt", "stored");
  backUp();
  std::filesystem::create_directory(folder_ / "elsewhere");
  ASSERT_EQ(chown((folder_ / "elsewhere").c_str(), kUser, kGroup), 0);
  std::filesystem::create_directory_symlink(folder_ / "elsewhere", target() + "/docs");
  const RestoreReport report = restore(requestOfUser({"docs"}));
  EXPECT_THAT(report.problems, Contains(HasSubstr("symbolic link")));
  EXPECT_THAT(contentsOf(folder_ / "elsewhere"), IsEmpty());
}

TEST_F(RestoreForUsersTest, MakesTheFoldersAboveAFileThatGoesToItsOwnPlace) {
  writeFor(kUser, "docs/deep/a.txt", "stored", 0600);
  ASSERT_EQ(chmod((home() + "/docs").c_str(), 0700), 0);
  backUp();
  remove("docs");
  RestoreRequest request = requestOfUser({"docs/deep"});
  request.target.clear();
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(home() + "/docs/deep/a.txt"), "stored");
  EXPECT_EQ(statusOf(home() + "/docs").st_uid, kUser);
  EXPECT_EQ(statusOf(home() + "/docs").st_mode & 07777, 0700U);
}

TEST_F(RestoreForUsersTest, IsRefusedByADaemonThatIsNotRoot) {
  std::string refusal;
  std::uint32_t job = 1;
  std::thread([&] {
    ASSERT_EQ(syscall(SYS_setresuid, kOther, kOther, kOther), 0);  // changes this thread only
    job = jobs_->add(requestOfUser({"a.txt"}), &refusal);
  }).join();
  EXPECT_EQ(job, 0U);
  EXPECT_EQ(refusal, "Only a daemon that runs as the administrator restores for other users.");
}

}  // namespace
}  // namespace keldane::testing
