#include "daemon/engine/restic/ResticEngine.h"

#include "tests/daemon/engine/EngineFixture.h"

namespace keldane::testing {
namespace {

using ResticEngineTest = EngineFixture;

TEST_F(ResticEngineTest, MakesARepositoryOnceAndKeepsItsId) {
  EXPECT_EQ(engine_.probe(job_).health, Health::notSetUp);
  ASSERT_TRUE(engine_.initialize(job_));
  const std::string id = files().configuration()->repositoryId;
  EXPECT_EQ(id.size(), 64U);
  EXPECT_EQ(engine_.initialize(job_).health, Health::ready);
  EXPECT_EQ(files().configuration()->repositoryId, id);
  std::string told;
  EXPECT_TRUE(engine_.repositoryId(told, job_));
  EXPECT_EQ(told, id);
  EXPECT_THAT(leftInWork(), ::testing::IsEmpty());
}

TEST_F(ResticEngineTest, NeverMakesARepositoryAnewWhereOneWas) {
  initialize();
  std::filesystem::rename(repository(), repository() + ".away");
  EXPECT_EQ(engine_.probe(job_).health, Health::missing);
  EXPECT_EQ(engine_.initialize(job_).health, Health::missing);
  EXPECT_EQ(store({home()}).health, Health::missing);
  EXPECT_FALSE(std::filesystem::exists(repository()));
  std::filesystem::create_directory(repository());
  EXPECT_EQ(engine_.initialize(job_).health, Health::missing);
  EXPECT_TRUE(std::filesystem::is_empty(repository()));
  std::filesystem::remove(repository());
  std::filesystem::rename(repository() + ".away", repository());
  EXPECT_TRUE(engine_.probe(job_));
}

TEST_F(ResticEngineTest, TellsAnotherRepositoryAtItsPlace) {
  initialize();
  const std::string id = files().configuration()->repositoryId;
  configure([](RepositoryConfig& configuration) { configuration.repositoryId = std::string(64, 'a'); });
  EXPECT_EQ(engine_.probe(job_).health, Health::otherRepository);
  EXPECT_EQ(engine_.initialize(job_).health, Health::otherRepository);
  configure([](RepositoryConfig& configuration) { configuration.repositoryId.clear(); });
  EXPECT_EQ(engine_.initialize(job_).health, Health::otherRepository);
  EXPECT_EQ(files().configuration()->repositoryId, "");
  configure([&](RepositoryConfig& configuration) { configuration.repositoryId = id; });
  EXPECT_TRUE(engine_.probe(job_));
}

TEST_F(ResticEngineTest, FinishesTheMakingThatACrashCutOff) {
  initialize();
  const std::string id = files().configuration()->repositoryId;
  configure([](RepositoryConfig& configuration) { configuration.repositoryId.clear(); });
  leaveInWork("making", repository());
  EXPECT_TRUE(engine_.initialize(job_));
  EXPECT_EQ(files().configuration()->repositoryId, id);
  EXPECT_FALSE(std::filesystem::exists(data().work() + "/making"));

  configure([](RepositoryConfig& configuration) { configuration.repositoryId.clear(); });
  leaveInWork("making", repository());
  std::filesystem::remove(repository() + "/config");  // it is written last
  EXPECT_TRUE(engine_.initialize(job_));
  EXPECT_TRUE(engine_.probe(job_));
}

TEST_F(ResticEngineTest, MakesNoRepositoryInAFolderThatHoldsOtherThings) {
  folder_.write("data/repository/photo.jpg", "x");
  EXPECT_EQ(engine_.initialize(job_).health, Health::failed);
  EXPECT_FALSE(std::filesystem::exists(repository() + "/config"));
}

TEST_F(ResticEngineTest, TellsAWrongKeyAndAMissingOne) {
  initialize();
  files().makeKey();
  answer_ = engine_.probe(job_);
  EXPECT_EQ(answer_.health, Health::wrongKey) << answer_;
  EXPECT_THAT(answer_.detail, ::testing::HasSubstr("key"));
  std::filesystem::remove(data().key());
  EXPECT_EQ(engine_.probe(job_).health, Health::wrongKey);
}

TEST_F(ResticEngineTest, TakesARepositoryWithoutAPartOfItForNoOther) {
  initialize();
  for (const std::string part : {"/keys", "/snapshots"}) {
    std::filesystem::rename(repository() + part, repository() + ".away");
    std::vector<Snapshot> snapshots;
    const EngineAnswer answer = engine_.snapshots(false, snapshots, job_);
    EXPECT_EQ(answer.health, Health::missing);
    EXPECT_THAT(answer.detail, ::testing::HasSubstr(part));
    std::filesystem::rename(repository() + ".away", repository() + part);
    EXPECT_TRUE(engine_.snapshots(false, snapshots, job_));
  }
}

TEST_F(ResticEngineTest, TellsADiskThatIsNotConnected) {
  initialize();
  configure([](RepositoryConfig& configuration) { configuration.fileSystemUuid = "0123-ABCD"; });
  for (const EngineAnswer& answer :
       {engine_.probe(job_), engine_.initialize(job_), EngineAnswer(store({home()}))}) {
    EXPECT_EQ(answer.health, Health::notConnected);
    EXPECT_EQ(answer.detail, "The disk with the backup is not connected. Plug it in.");
  }
}

TEST_F(ResticEngineTest, TellsWhenNothingIsSetUp) {
  ResticEngine engine(RepositoryFiles(DataFolder{folder_ / "nothing"}));
  EXPECT_EQ(engine.probe(job_).health, Health::notSetUp);
  EXPECT_EQ(engine.initialize(job_).health, Health::notSetUp);
  EXPECT_EQ(engine.unlock(job_).health, Health::notSetUp);
}

TEST_F(ResticEngineTest, TellsAConfigurationThatCannotBeRead) {
  folder_.write("data/repository.json", "{");
  answer_ = engine_.probe(job_);
  EXPECT_EQ(answer_.health, Health::failed);
  EXPECT_THAT(answer_.detail, ::testing::HasSubstr("repository.json"));
}

TEST_F(ResticEngineTest, SweepsWhatADeadProcessLeft) {
  leaveInWork("scratch.999999999.location.abc", "x");
  leaveInWork("making", "y");
  const ResticEngine engine(files());
  EXPECT_THAT(leftInWork(), ::testing::ElementsAre("making"));
}

}  // namespace
}  // namespace keldane::testing
