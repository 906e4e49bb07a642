#include <sys/xattr.h>

#include "daemon/engine/restic/ResticEngine.h"
#include "tests/daemon/engine/EngineFixture.h"

namespace keldane::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;
using ResticReadingTest = EngineFixture;

std::vector<std::string> pathsOf(const std::vector<FoundEntry>& found) {
  std::vector<std::string> paths;
  for (const FoundEntry& entry : found) {
    paths.push_back(entry.entry.path);
  }
  return paths;
}

TEST_F(ResticReadingTest, ListsWhatASnapshotHoldsAtAndBelowAPath) {
  initialize();
  const std::string file = write("folder/inner/file", "12345");
  write("other", "x");
  ::chmod(file.c_str(), 04751);
  std::filesystem::create_symlink("file", home() + "/folder/inner/link");
  timespec times[2] = {{1'000'000'000, 123'456'789}, {1'000'000'000, 123'456'789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const std::string snapshot = store({home()}).snapshot;
  std::vector<StoredEntry> entries;
  const auto keep = [&](const StoredEntry& entry) { entries.push_back(entry); };
  ASSERT_TRUE(engine_.list(snapshot, home() + "/folder/", keep, job_));
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[0].path, home() + "/folder");
  EXPECT_EQ(entries[0].kind, EntryKind::folder);
  EXPECT_EQ(entries[2].path, file);
  EXPECT_EQ(entries[2].kind, EntryKind::file);
  EXPECT_EQ(entries[2].size, 5U);
  EXPECT_EQ(entries[2].mode, 04751U);
  EXPECT_EQ(entries[2].modified, 1'000'000'000'123'456'789);
  EXPECT_EQ(entries[2].owner, ::geteuid());
  EXPECT_EQ(entries[3].kind, EntryKind::link);
  entries.clear();
  EXPECT_TRUE(engine_.list(snapshot, home() + "/nowhere", keep, job_));
  EXPECT_THAT(entries, IsEmpty());
  answer_ = engine_.list("deadbeef", "", keep, job_);
  EXPECT_EQ(answer_.health, Health::failed);
  EXPECT_THAT(answer_.detail, HasSubstr("no snapshot deadbeef"));
}

TEST_F(ResticReadingTest, ListsSnapshotsOfThisComputerOrOfAll) {
  initialize();
  write("file", "x");
  const std::string mine = store({home()}).snapshot;
  configure([](RepositoryConfig& configuration) { configuration.computerNumber = 8; });
  const std::string other = store({home()}).snapshot;
  std::vector<Snapshot> snapshots;
  ASSERT_TRUE(engine_.snapshots(false, snapshots, job_));
  ASSERT_EQ(snapshots.size(), 1U);
  EXPECT_TRUE(snapshots[0].id.starts_with(other));
  ASSERT_TRUE(engine_.snapshots(true, snapshots, job_));
  ASSERT_EQ(snapshots.size(), 2U);
  EXPECT_TRUE(snapshots[0].id.starts_with(mine));
  EXPECT_LT(snapshots[0].time, snapshots[1].time);
  EXPECT_NEAR(snapshots[1].time, static_cast<double>(::time(nullptr)), 60);
}

TEST_F(ResticReadingTest, FindsNamesAndPathsTheNewestFirst) {
  initialize();
  const std::string report = write("docs/report.odt", "one");
  write("docs/repörts", "x");
  const std::string odd = write("docs/*?[\\", "y");
  std::vector<std::string> stored;
  for (int i = 0; i < 4; ++i) {
    write("docs/report.odt", std::to_string(i));
    stored.push_back(store({home()}).snapshot);
  }
  std::filesystem::rename(home() + "/docs", home() + "/moved");
  stored.push_back(store({home()}).snapshot);

  std::vector<FoundEntry> found;
  ASSERT_TRUE(engine_.find("report.*", found, job_));
  ASSERT_EQ(found.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_TRUE(found[i].snapshot.starts_with(stored[4 - i])) << i;
  }
  EXPECT_EQ(found[0].entry.path, home() + "/moved/report.odt");
  EXPECT_EQ(found[1].entry.size, 1U);
  ASSERT_TRUE(engine_.find(home() + "/moved/rep?rts", found, job_));
  EXPECT_THAT(pathsOf(found), ElementsAre(home() + "/moved/repörts"));
  ASSERT_TRUE(engine_.find("docs", found, job_));
  EXPECT_THAT(pathsOf(found), ::testing::Each(home() + "/docs")) << "and nothing below it";
  EXPECT_FALSE(found.empty()) << "the storage program may leave out a folder that it has seen before";
  ASSERT_TRUE(engine_.find("\\*\\?\\[\\\\", found, job_));
  EXPECT_EQ(found.size(), 5U);
  ASSERT_TRUE(engine_.find("-nothing", found, job_));
  EXPECT_THAT(found, IsEmpty());
  EXPECT_EQ(engine_.find("docs/report.odt", found, job_).health, Health::failed);
}

TEST_F(ResticReadingTest, FetchesBytesOrSaysWhyNot) {
  initialize();
  const std::string file = write("file", std::string(3'000'000, 'x') + "end");
  const std::string snapshot = store({file}).snapshot;
  EXPECT_EQ(fetch(snapshot, file), readWhole(file));
  EXPECT_EQ(fetch(snapshot, file + "x"), std::nullopt);
  EXPECT_THAT(answer_.detail, HasSubstr("does not have the file"));
  EXPECT_EQ(fetch("deadbeef", file), std::nullopt);
  EXPECT_THAT(answer_.detail, HasSubstr("no snapshot"));
}

TEST_F(ResticReadingTest, RestoresFoldersWithAllThatBelongsToThem) {
  initialize();
  const std::string file = write("a/file", "content");
  std::filesystem::create_hard_link(file, home() + "/a/hard");
  std::filesystem::create_directory(home() + "/a/empty");
  std::filesystem::create_symlink("file", home() + "/a/link");
  ::chmod(file.c_str(), 0640);
  ::setxattr(file.c_str(), "user.note", "hi", 2, 0);
  write("a2/not-wanted", "x");
  const std::string snapshot = store({home()}).snapshot;
  std::vector<std::string> problems;
  ASSERT_TRUE(engine_.restore(snapshot, {home() + "/a"}, folder_ / "out", problems, job_));
  EXPECT_THAT(problems, IsEmpty());
  const std::string out = (folder_ / "out") + home();
  EXPECT_EQ(readWhole(out + "/a/file"), "content");
  EXPECT_EQ(std::filesystem::status(out + "/a/file").permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(std::filesystem::hard_link_count(out + "/a/file"), 2U);
  EXPECT_EQ(std::filesystem::read_symlink(out + "/a/link"), "file");
  EXPECT_TRUE(std::filesystem::is_directory(out + "/a/empty"));
  EXPECT_FALSE(std::filesystem::exists(out + "/a2"));
  char value[8];
  EXPECT_EQ(::getxattr((out + "/a/file").c_str(), "user.note", value, sizeof(value)), 2);
}

TEST_F(ResticReadingTest, RestoresMoreItemsThanACommandLineHolds) {
  initialize();
  std::vector<std::string> files;
  const std::string longName(200, '*');
  for (int i = 0; i < 400; ++i) {
    files.push_back(write("x/" + longName + std::to_string(i), std::to_string(i)));
  }
  const std::string snapshot = store({home()}).snapshot;
  files.pop_back();
  std::vector<std::string> problems;
  answer_ = engine_.restore(snapshot, files, folder_ / "out", problems, job_);
  ASSERT_TRUE(answer_) << answer_;
  for (const std::string& file : files) {
    ASSERT_EQ(readWhole((folder_ / "out") + file), readWhole(file));
  }
  EXPECT_FALSE(std::filesystem::exists((folder_ / "out") + home() + "/x/" + longName + "399"));
}

TEST_F(ResticReadingTest, RestoresNoFileWithWrongContent) {
  initialize();
  const std::string good = write("good", "fine");
  const std::string first = store({good}).snapshot;
  const std::string bad = write("bad", noise(9'000'000));
  const std::string snapshot = store({home()}).snapshot;
  // Damage to a pack of trees would also lose the names, so this looks for the pack that holds only the
  // content.
  for (const std::filesystem::path& pack : packs()) {
    damage(pack);
    if (!fetch(snapshot, bad) && fetch(snapshot, good)) {
      break;
    }
  }
  std::vector<std::string> problems;
  answer_ = engine_.restore(snapshot, {}, folder_ / "out", problems, job_);
  EXPECT_EQ(answer_.health, Health::damaged) << answer_;
  EXPECT_THAT(problems, Contains(AllOf(StartsWith(bad + ": "), EndsWith("ciphertext verification failed"))));
  EXPECT_EQ(readWhole((folder_ / "out") + good), "fine");
  EXPECT_FALSE(std::filesystem::exists((folder_ / "out") + bad));
}

}  // namespace
}  // namespace keldane::testing
