#include "clients/preferences/words/AlertLimit.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(AlertLimit, TellsTheSameThingOnceADay) {
  AlertLimit limit;
  EXPECT_TRUE(limit.mayTell("full", 100));
  EXPECT_FALSE(limit.mayTell("full", 101));
  EXPECT_TRUE(limit.mayTell("gone", 101));
  EXPECT_FALSE(limit.mayTell("full", 86499));
  EXPECT_TRUE(limit.mayTell("full", 86500));
  EXPECT_FALSE(limit.mayTell("full", 86501));
}

}  // namespace
}  // namespace keldane
