#include "daemon/engine/ResticEngine.h"
#include "tests/daemon/engine/EngineFixture.h"

namespace keldane::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ResticCareTest = EngineFixture;

TEST_F(ResticCareTest, ForgetsAndGivesBackTheRoom) {
  initialize();
  const std::string file = write("file", noise(3'000'000));
  const std::string large = store({file}).snapshot;
  write("file", "small");
  const std::string small = store({file}).snapshot;
  std::uint64_t before = 0;
  ASSERT_TRUE(engine_.size(before, job_));
  EXPECT_GT(before, 3'000'000U);
  EXPECT_TRUE(engine_.forget({}, job_));
  EXPECT_EQ(engine_.forget({"--prune"}, job_).health, Health::failed);
  ASSERT_TRUE(engine_.forget({large}, job_));
  ASSERT_TRUE(engine_.prune(job_));
  std::uint64_t after = 0;
  ASSERT_TRUE(engine_.size(after, job_));
  EXPECT_LT(after, 1'000'000U);
  std::vector<Snapshot> snapshots;
  ASSERT_TRUE(engine_.snapshots(true, snapshots, job_));
  ASSERT_EQ(snapshots.size(), 1U);
  EXPECT_TRUE(snapshots[0].id.starts_with(small));
}

TEST_F(ResticCareTest, FindsDamageAndHealsItByStoringAgain) {
  initialize();
  const std::string file = write("file", "content that is stored twice");
  const std::string snapshot = store({file}).snapshot;
  EXPECT_TRUE(engine_.check(1, 1, job_));
  // A pack of contents, not of trees: the file cannot be had, but its name can be found.
  for (const std::filesystem::path& pack : packs()) {
    const std::string kept = readWhole(pack);
    damage(pack);
    std::vector<FoundEntry> found;
    if (engine_.filesInPacks({pack.filename()}, found, job_) && !found.empty() &&
        found[0].entry.kind == EntryKind::file) {
      break;
    }
    std::ofstream(pack, std::ios::binary) << kept;
  }
  EXPECT_TRUE(engine_.check(0, 0, job_));
  const CheckAnswer answer = engine_.check(1, 1, job_);
  EXPECT_EQ(answer.health, Health::damaged) << answer;
  ASSERT_EQ(answer.damagedPacks.size(), 1U);
  EXPECT_THAT(answer.messages, Contains(HasSubstr("does not match")));

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

TEST_F(ResticCareTest, ChecksAPart) {
  initialize();
  write("file", "x");
  ASSERT_TRUE(store({home()}));
  EXPECT_TRUE(engine_.check(2, 3, job_));
  EXPECT_EQ(engine_.check(4, 3, job_).health, Health::failed);
}

TEST_F(ResticCareTest, RefusesIdsThatAreNone) {
  initialize();
  std::vector<FoundEntry> found;
  EXPECT_EQ(engine_.filesInPacks({"../../etc"}, found, job_).health, Health::failed);
  EXPECT_EQ(engine_.dropPacks({"../../config"}, job_).health, Health::failed);
  EXPECT_TRUE(std::filesystem::exists(repository() + "/config"));
}

TEST_F(ResticCareTest, OpensWithAPassphraseThatWasAdded) {
  initialize();
  EXPECT_EQ(engine_.addKey(" ends with a blank ", job_).health, Health::failed);
  EXPECT_EQ(engine_.addKey("two\nlines", job_).health, Health::failed);
  ASSERT_TRUE(engine_.addKey("correct horse battery staple", job_));
  EXPECT_THAT(leftInWork(), IsEmpty());
  files().setKey("correct horse battery staple");
  EXPECT_TRUE(engine_.probe(job_));
}

}  // namespace
}  // namespace keldane::testing
