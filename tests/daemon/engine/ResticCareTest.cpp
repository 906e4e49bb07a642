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

}  // namespace
}  // namespace keldane::testing
