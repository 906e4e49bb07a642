#include "clients/core/words/HealthText.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(HealthText, HasWordsForEveryHealth) {
  EXPECT_EQ(healthText("ready"), "ready");
  EXPECT_EQ(healthText("notConnected"), "away: its disk is not connected");
  for (const char* health :
       {"notSetUp", "missing", "otherRepository", "wrongKey", "notConnected", "unreachable", "denied",
        "locked", "full", "damaged", "engineMissing", "engineTooOld", "failed"}) {
    EXPECT_NE(healthText(health), health);
  }
}

TEST(HealthText, PassesOnWhatItDoesNotKnow) {
  EXPECT_EQ(healthText("onStrike"), "onStrike");
  EXPECT_EQ(healthText("on\nstrike").find('\n'), std::string::npos);
  EXPECT_EQ(healthText(""), "");
}

}  // namespace
}  // namespace keldane
