#include "daemon/engine/restic/ResticEngine.h"
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

TEST_F(ResticCareTest, ChecksAPart) {
  initialize();
  write("file", "x");
  ASSERT_TRUE(store({home()}));
  EXPECT_TRUE(engine_.check(2, 3, job_));
  EXPECT_EQ(engine_.check(4, 3, job_).health, Health::failed);
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

TEST_F(ResticCareTest, TellsItsKeysAndRemovesOne) {
  initialize();
  ASSERT_TRUE(engine_.addKey("correct horse battery staple", job_));
  std::vector<KeyRecord> keys;
  ASSERT_TRUE(engine_.keys(keys, job_));
  ASSERT_EQ(keys.size(), 2U);
  ASSERT_NE(keys[0].inUse, keys[1].inUse);
  const std::string own = keys[keys[0].inUse ? 0 : 1].id, other = keys[keys[0].inUse ? 1 : 0].id;
  EXPECT_FALSE(engine_.removeKey(own, job_));
  EXPECT_EQ(engine_.removeKey("--help", job_).health, Health::failed);
  ASSERT_TRUE(engine_.removeKey(other, job_));
  ASSERT_TRUE(engine_.keys(keys, job_));
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_EQ(keys[0].id, own);
}

/// Another repository with the same key, and an engine for it.
class ResticCopyTest : public EngineFixture {
 protected:
  ResticCopyTest() {
    initialize();
    RepositoryConfig configuration = files().configuration().value();
    configuration.location = folder_ / "copy/repository";
    configuration.repositoryId.clear();
    copyFiles_.setConfiguration(configuration);
    copyFiles_.setKey(files().key());
  }

  const RepositoryFiles copyFiles_{DataFolder{folder_ / "copy"}};
  ResticEngine copy_{copyFiles_};
};

TEST_F(ResticCopyTest, CopiesEverySnapshotOnce) {
  write("file", "first");
  ASSERT_TRUE(store({home()}, {"number:1"}));
  write("file", "second");
  ASSERT_TRUE(store({home()}, {"number:2"}));
  ASSERT_TRUE(copy_.initializeLike(files(), job_));
  EXPECT_NE(copyFiles_.configuration()->repositoryId, id());
  std::vector<std::size_t> told;
  const auto note = [&](std::size_t done) { told.push_back(done); };
  ASSERT_TRUE(copy_.copyFrom(files(), note, job_));
  EXPECT_THAT(told, ElementsAre(1, 2));
  told.clear();
  ASSERT_TRUE(copy_.copyFrom(files(), note, job_));
  EXPECT_THAT(told, ElementsAre(1, 2));
  std::vector<Snapshot> here, there;
  ASSERT_TRUE(engine_.snapshots(true, here, job_));
  ASSERT_TRUE(copy_.snapshots(true, there, job_));
  ASSERT_EQ(there.size(), 2U);
  for (std::size_t i = 0; i < here.size(); ++i) {
    EXPECT_EQ(there[i].time, here[i].time);
    EXPECT_EQ(there[i].tags, here[i].tags);
    EXPECT_EQ(there[i].host, here[i].host);
  }
  EXPECT_TRUE(copy_.check(1, 1, job_));
}

TEST_F(ResticCopyTest, RefusesTwoValuesOfOneNameBeforeAnythingIsMade) {
  files().setEnvironment({{"AWS_ACCESS_KEY_ID", "mine"}, {"AWS_SECRET_ACCESS_KEY", "secretword"}});
  copyFiles_.setEnvironment({{"AWS_ACCESS_KEY_ID", "mine"}, {"AWS_SECRET_ACCESS_KEY", "otherword"}});
  const EngineAnswer answer = copy_.initializeLike(files(), job_);
  EXPECT_EQ(answer.health, Health::failed);
  EXPECT_THAT(answer.detail, HasSubstr("Both places need AWS_SECRET_ACCESS_KEY"));
  EXPECT_THAT(answer.detail, Not(HasSubstr("otherword")));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "copy/repository"));
}

}  // namespace
}  // namespace keldane::testing
