#include "daemon/backup/FairShare.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

constexpr uid_t kAnna = 1000, kBen = 1001, kCleo = 1002;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

using Shares = std::map<uid_t, std::size_t>;

std::vector<std::uint64_t> files(std::size_t count, std::uint64_t size = 1) {
  return std::vector<std::uint64_t>(count, size);
}

TEST(FairShareTest, WhoeverIsAloneHasAllOfIt) {
  FairShare share;
  EXPECT_EQ(share.divide({{kAnna, files(1000)}}, {10, kGiB}), (Shares{{kAnna, 10}}));
  EXPECT_EQ(share.divide({{kAnna, files(5)}}, {10, kGiB}), (Shares{{kAnna, 5}}));
  EXPECT_EQ(share.divide({}, {10, kGiB}), Shares());
}

TEST(FairShareTest, AMillionFilesHaveHalfWhileAnothersWait) {
  FairShare share;
  EXPECT_EQ(share.divide({{kAnna, files(1'000'000)}, {kBen, files(1'000'000)}}, {1000, kGiB}),
            (Shares{{kAnna, 500}, {kBen, 500}}));
  EXPECT_EQ(share.divide({{kAnna, files(1'000'000)}, {kBen, files(3)}}, {1000, kGiB}),
            (Shares{{kAnna, 997}, {kBen, 3}}));
}

TEST(FairShareTest, ABatchEndsAtItsBytesAndTakesOneFileAtLeast) {
  FairShare share;
  EXPECT_EQ(share.divide({{kAnna, {100, 1, 1}}}, {10, 50}), (Shares{{kAnna, 1}}));
  EXPECT_EQ(share.divide({{kAnna, {20, 20, 20}}}, {10, 50}), (Shares{{kAnna, 2}}));
  EXPECT_EQ(share.divide({{kAnna, {~std::uint64_t{0}, ~std::uint64_t{0}}}}, {10, 50}), (Shares{{kAnna, 1}}));
}

TEST(FairShareTest, ManySmallFilesGoForAFewLargerOnes) {
  FairShare share;
  const Shares shares =
      share.divide({{kAnna, files(100, kGiB / 2)}, {kBen, files(100'000, 100)}}, {1'000'000, 2 * kGiB});
  EXPECT_EQ(shares.at(kAnna), 3U) << "the fourth no longer fits";
  EXPECT_GT(shares.at(kBen), 4'000U);
  EXPECT_LT(shares.at(kBen), 20'000U);
}

TEST(FairShareTest, WhoeverHadNothingComesNext) {
  FairShare share;
  const WaitingSizes waiting = {{kAnna, files(9)}, {kBen, files(9)}, {kCleo, files(9)}};
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kAnna, 1}}));
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kBen, 1}}));
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kCleo, 1}}));
  EXPECT_EQ(share.divide(waiting, {1, kGiB}), (Shares{{kAnna, 1}}));
}

TEST(FairShareTest, WhoComesAnewIsNotOwedThePast) {
  FairShare share;
  share.divide({{kAnna, files(1000)}}, {1000, kGiB});
  const Shares shares = share.divide({{kAnna, files(1000)}, {kBen, files(1000)}}, {100, kGiB});
  EXPECT_EQ(shares, (Shares{{kAnna, 50}, {kBen, 50}}));
}

}  // namespace
}  // namespace keldane
