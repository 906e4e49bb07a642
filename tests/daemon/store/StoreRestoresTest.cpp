#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using StoreRestores = testing::StoreFixture;

TEST_F(StoreRestores, JobsSurviveAndTheirNumbersAreNotGivenAgain) {
  const std::string bytes("bplist\0\xff\x01", 9);
  const std::uint32_t first = store.addRestore({0, bytes, 1, "", 4'000'000'000});
  const std::uint32_t second = store.addRestore({});
  EXPECT_GT(first, 0U);
  EXPECT_GT(second, first);
  store.setRestore({first, bytes + bytes, 3, bytes, 7});
  store.setRestore({99, "", 0, "", 0});
  store.removeRestore(second);
  Store next(folder / "s");
  ASSERT_EQ(next.restores().size(), 1U);
  const Store::RestoreRecord job = next.restores()[0];
  EXPECT_EQ(job.number, first);
  EXPECT_EQ(job.request, bytes + bytes);
  EXPECT_EQ(job.status, 3U);
  EXPECT_EQ(job.report, bytes);
  EXPECT_EQ(job.user, 7U);
  EXPECT_GT(next.addRestore({}), second);
}

}  // namespace
}  // namespace keldane
