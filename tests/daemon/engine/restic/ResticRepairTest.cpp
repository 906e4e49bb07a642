#include "daemon/engine/restic/ResticEngine.h"
#include "tests/daemon/engine/EngineFixture.h"

namespace keldane::testing {
namespace {

using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ResticRepairTest : public EngineFixture {
 protected:
  /// A pack that has parts of this type: "data" for contents, "tree" for lists of names.
  std::filesystem::path packOf(const std::string& type) {
    for (const std::filesystem::path& pack : packs()) {
      std::vector<FoundEntry> found;
      if (engine_.filesInPacks({pack.filename()}, found, job_) && !found.empty() &&
          (found[0].entry.kind == EntryKind::file) == (type == "data")) {
        return pack;
      }
    }
    ADD_FAILURE() << "there is no pack of " << type;
    return repository() + "/none";
  }
  static void damageEnd(const std::filesystem::path& file) {
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(-8, std::ios::end);
    stream << "XXXX";
  }
  std::filesystem::path onlyFileIn(const std::string& name) const {
    return std::filesystem::directory_iterator(repository() + "/" + name)->path();
  }
};

TEST_F(ResticRepairTest, FindsDamageAndHealsItByStoringAgain) {
  initialize();
  const std::string file = write("file", "content that is stored twice");
  const std::string snapshot = store({file}).snapshot;
  EXPECT_TRUE(engine_.check(1, 1, job_));
  damage(packOf("data"));
  EXPECT_TRUE(engine_.check(0, 0, job_));
  const CheckAnswer answer = engine_.check(1, 1, job_);
  EXPECT_EQ(answer.health, Health::damaged) << answer;
  ASSERT_EQ(answer.damagedPacks.size(), 1U);
  EXPECT_THAT(answer.messages, Contains(AnyOf(HasSubstr("does not match"), HasSubstr("unexpected pack id"))));

  std::vector<FoundEntry> found;
  ASSERT_TRUE(engine_.filesInPacks(answer.damagedPacks, found, job_));
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].entry.path, file);
  EXPECT_TRUE(found[0].snapshot.starts_with(snapshot));
  EXPECT_EQ(fetch(snapshot, file), std::nullopt);
  EXPECT_EQ(answer_.health, Health::damaged) << answer_;

  ASSERT_TRUE(store({file}));
  EXPECT_EQ(fetch(snapshot, file), std::nullopt) << "it is deduplicated against what is damaged";
  ASSERT_TRUE(engine_.dropPacks(answer.damagedPacks, job_));
  EXPECT_TRUE(std::filesystem::exists(data().setAside() + "/" + answer.damagedPacks[0]));
  const StoreAnswer again = store({file});
  ASSERT_TRUE(again) << again;
  EXPECT_EQ(fetch(again.snapshot, file), readWhole(file));
  EXPECT_EQ(fetch(snapshot, file), readWhole(file));
  EXPECT_TRUE(engine_.check(1, 1, job_));
}

TEST_F(ResticRepairTest, RefusesIdsThatAreNone) {
  initialize();
  std::vector<FoundEntry> found;
  EXPECT_EQ(engine_.filesInPacks({"../../etc"}, found, job_).health, Health::failed);
  EXPECT_EQ(engine_.dropPacks({"../../config"}, job_).health, Health::failed);
  EXPECT_TRUE(std::filesystem::exists(repository() + "/config"));
}

TEST_F(ResticRepairTest, FindsTheFilesOfAPackWhoseOwnListIsDamaged) {
  initialize();
  const std::string file = write("file", "content");
  ASSERT_TRUE(store({file}));
  const std::filesystem::path pack = packOf("data");
  damageEnd(pack);
  std::vector<FoundEntry> found;
  answer_ = engine_.filesInPacks({pack.filename()}, found, job_);
  ASSERT_TRUE(answer_) << answer_;
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].entry.path, file);
  std::filesystem::remove(pack);
  found.clear();
  EXPECT_TRUE(engine_.filesInPacks({pack.filename()}, found, job_));
  EXPECT_EQ(found.size(), 1U);
}

TEST_F(ResticRepairTest, BringsListsOfNamesBackFromTheCache) {
  initialize();
  const std::string file = write("folder/file", "content");
  const std::string snapshot = store({file}).snapshot;
  const std::filesystem::path pack = packOf("tree");
  damage(pack);
  CheckAnswer check = engine_.check(1, 1, job_);
  ASSERT_THAT(check.damagedPacks, ElementsAre(pack.filename()));
  ASSERT_TRUE(engine_.dropPacks(check.damagedPacks, job_));
  check = engine_.check(1, 1, job_);
  EXPECT_TRUE(check) << check;
  EXPECT_EQ(fetch(snapshot, file), "content");
}

TEST_F(ResticRepairTest, TellsSnapshotsThatLostListsOfNames) {
  initialize();
  write("folder/file", "content");
  const std::string first = store({home()}, {"one"}).snapshot;
  const std::string second = store({home()}, {"two"}).snapshot;
  const std::filesystem::path pack = packOf("tree");
  damage(pack);
  std::filesystem::remove_all(data().cache());
  std::vector<FoundEntry> found;
  answer_ = engine_.filesInPacks({pack.filename()}, found, job_);
  ASSERT_TRUE(answer_) << answer_;
  std::set<std::string> hit;
  for (const FoundEntry& entry : found) {
    EXPECT_EQ(entry.entry.kind, EntryKind::folder);
    EXPECT_TRUE((home() + "/").starts_with(entry.entry.path)) << entry.entry.path;
    hit.insert(entry.snapshot.substr(0, 8));
  }
  EXPECT_THAT(hit, ::testing::UnorderedElementsAre(first.substr(0, 8), second.substr(0, 8)));

  ASSERT_TRUE(engine_.dropPacks({pack.filename()}, job_));
  CheckAnswer check = engine_.check(0, 0, job_);
  EXPECT_EQ(check.health, Health::damaged) << check;
  EXPECT_THAT(check.damagedPacks, IsEmpty());
  EXPECT_EQ(check.damagedSnapshots.size(), 2U);
  const StoreAnswer again = store({home()});
  ASSERT_TRUE(again) << again;
  EXPECT_EQ(fetch(again.snapshot, home() + "/folder/file"), "content");
  ASSERT_TRUE(engine_.forget(check.damagedSnapshots, job_));
  check = engine_.check(1, 1, job_);
  EXPECT_TRUE(check) << check;
}

TEST_F(ResticRepairTest, MakesADamagedIndexAnew) {
  initialize();
  const std::string file = write("file", "content");
  const std::string snapshot = store({file}).snapshot;
  damage(onlyFileIn("index"));
  std::filesystem::remove_all(data().cache());
  EXPECT_EQ(store({file}).health, Health::damaged);
  EXPECT_EQ(engine_.check(0, 0, job_).health, Health::damaged);
  ASSERT_TRUE(engine_.dropPacks({}, job_));
  EXPECT_TRUE(engine_.check(1, 1, job_));
  EXPECT_EQ(fetch(snapshot, file), "content");
}

TEST_F(ResticRepairTest, TakesASnapshotAwayThatCannotBeRead) {
  initialize();
  const std::string file = write("file", "content");
  ASSERT_TRUE(store({file}));
  damage(onlyFileIn("snapshots"));
  std::filesystem::remove_all(data().cache());
  const std::string good = store({file}).snapshot;
  EXPECT_EQ(engine_.prune(job_).health, Health::damaged);
  EXPECT_EQ(engine_.check(0, 0, job_).health, Health::damaged);
  ASSERT_TRUE(engine_.dropPacks({}, job_));
  EXPECT_TRUE(engine_.prune(job_));
  EXPECT_TRUE(engine_.check(1, 1, job_));
  EXPECT_EQ(fetch(good, file), "content");
}

}  // namespace
}  // namespace keldane::testing
