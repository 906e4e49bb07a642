#include "daemon/backup/Surroundings.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

constexpr std::int64_t kNow = 1000;
constexpr Surroundings::Report kMetered = {std::nullopt, true, false};
constexpr Surroundings::Report kSaving = {std::nullopt, false, true};

Surroundings::Report onBattery(std::uint32_t percent) { return {percent, false, false}; }

struct SurroundingsTest : ::testing::Test {
  std::string reason(const Surroundings::Report& report, bool isRemote = true) {
    surroundings.tell(report, kNow);
    return surroundings.reason(rules, isRemote, kNow);
  }
  Surroundings surroundings;
  Surroundings::Rules rules;
};

TEST_F(SurroundingsTest, NothingSpeaksAgainstBackupsUntilSomethingIsTold) {
  EXPECT_EQ(surroundings.reason(rules, true, 0), "");
  EXPECT_EQ(surroundings.restsUntil(rules, true, kNow), 0);
  EXPECT_EQ(reason({}), "");
}

TEST_F(SurroundingsTest, EachReasonCountsUnlessItIsSwitchedOff) {
  EXPECT_EQ(reason(onBattery(29)), "The battery is at 29 %");
  EXPECT_EQ(reason(onBattery(30)), "");
  EXPECT_EQ(reason(kMetered), "The network is metered");
  EXPECT_EQ(reason(kMetered, false), "") << "a repository on this computer needs no network";
  EXPECT_EQ(reason(kSaving), "The computer saves power");
  rules = {.restBelowPercent = 0, .restOnMetered = false, .restInPowerSaver = false};
  EXPECT_EQ(reason({0, true, true}), "");
}

TEST_F(SurroundingsTest, WhatWasToldHoldsForSomeMinutes) {
  surroundings.tell(kSaving, kNow);
  const std::int64_t until = kNow + Surroundings::kHolds;
  EXPECT_EQ(surroundings.restsUntil(rules, true, kNow), until);
  EXPECT_NE(surroundings.reason(rules, true, until - 1), "");
  EXPECT_EQ(surroundings.reason(rules, true, until), "");
  EXPECT_EQ(surroundings.restsUntil(rules, true, until), 0);
  EXPECT_TRUE(surroundings.holds(until - 1));
  EXPECT_FALSE(surroundings.holds(until));
}

}  // namespace
}  // namespace keldane
