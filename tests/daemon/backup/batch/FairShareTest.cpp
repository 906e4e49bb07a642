#include "daemon/backup/batch/FairShare.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

constexpr uid_t kFirst = 1000, kSecond = 1001, kThird = 1002;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

using Shares = std::map<uid_t, std::size_t>;

std::vector<std::uint64_t> files(std::size_t count, std::uint64_t size = 1) {
  return std::vector<std::uint64_t>(count, size);
}

TEST(FairShareTest, WhoeverIsAloneHasAllOfIt) {
  FairShare share;
  EXPECT_EQ(share.divide({{kFirst, files(1000)}}, {10, kGiB}), (Shares{{kFirst, 10}}));
  EXPECT_EQ(share.divide({{kFirst, files(5)}}, {10, kGiB}), (Shares{{kFirst, 5}}));
  EXPECT_EQ(share.divide({}, {10, kGiB}), Shares());
}

TEST(FairShareTest, AMillionFilesHaveHalfWhileAnothersWait) {
  FairShare share;
  EXPECT_EQ(share.divide({{kFirst, files(1'000'000)}, {kSecond, files(1'000'000)}}, {1000, kGiB}),
            (Shares{{kFirst, 500}, {kSecond, 500}}));
  EXPECT_EQ(share.divide({{kFirst, files(1'000'000)}, {kSecond, files(3)}}, {1000, kGiB}),
            (Shares{{kFirst, 997}, {kSecond, 3}}));
}

TEST(FairShareTest, ABatchEndsAtItsBytesAndTakesOneFileAtLeast) {
  FairShare share;
  EXPECT_EQ(share.divide({{kFirst, {100, 1, 1}}}, {10, 50}), (Shares{{kFirst, 1}}));
  EXPECT_EQ(share.divide({{kFirst, {20, 20, 20}}}, {10, 50}), (Shares{{kFirst, 2}}));
  EXPECT_EQ(share.divide({{kFirst, {~std::uint64_t{0}, ~std::uint64_t{0}}}}, {10, 50}),
            (Shares{{kFirst, 1}}));
}

TEST(FairShareTest, ManySmallFilesGoForAFewLargerOnes) {
  FairShare share;
  const Shares shares =
      share.divide({{kFirst, files(100, kGiB / 2)}, {kSecond, files(100'000, 100)}}, {1'000'000, 2 * kGiB});
  EXPECT_EQ(shares.at(kFirst), 3U) << "the fourth no longer fits";
  EXPECT_GT(shares.at(kSecond), 4'000U);
  EXPECT_LT(shares.at(kSecond), 20'000U);
}

TEST(FairShareTest, WhoeverHadNothingComesNext) {
  FairShare share;
  const WaitingSizes waiting = {{kFirst, files(9)}, {kSecond, files(9)}, {kThird, files(9)}};
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kFirst, 1}}));
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kSecond, 1}}));
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kThird, 1}}));
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kFirst, 1}}));
}

TEST(FairShareTest, WhoComesAnewIsNotOwedThePast) {
  FairShare share;
  share.divide({{kFirst, files(1000)}}, {1000, kGiB});
  const Shares shares = share.divide({{kFirst, files(1000)}, {kSecond, files(1000)}}, {100, kGiB});
  EXPECT_EQ(shares, (Shares{{kFirst, 50}, {kSecond, 50}}));
}

}  // namespace
}  // namespace keldane
