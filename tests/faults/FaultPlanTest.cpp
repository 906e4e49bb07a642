#include "tests/tools/faults/proxy/FaultPlan.h"

#include <gtest/gtest.h>

#include <set>

namespace keldane::testing {
namespace {

TEST(FaultPlan, IsReadAsItIsWritten) {
  const FaultPlan plan = {{{Direction::answers, FaultKind::garbage, 2, 37},
                           {Direction::requests, FaultKind::swapType, 0, 0xFFFFFFFFU}}};
  EXPECT_EQ(plan.text(), "answers garbage 2 37; requests type 0 4294967295");
  EXPECT_EQ(FaultPlan::parse(plan.text()), plan);
  EXPECT_EQ(FaultPlan::parse(""), FaultPlan());
}

TEST(FaultPlan, IsNotReadFromAnythingElse) {
  for (const char* text :
       {"answers", "answers flip 1", "answers flip 1 2 3", "nobody flip 1 2", "answers bend 1 2", ";"}) {
    EXPECT_FALSE(FaultPlan::parse(text)) << text;
  }
}

TEST(FaultPlan, IsSettledBySeedAndCycle) {
  EXPECT_EQ(FaultPlan::random(7, 3), FaultPlan::random(7, 3));
  std::set<std::string> plans;
  std::set<std::string> kinds;
  for (std::uint32_t cycle = 0; cycle < 1000; ++cycle) {
    const FaultPlan plan = FaultPlan::random(7, cycle);
    EXPECT_FALSE(plan.faults.empty());
    EXPECT_EQ(FaultPlan::parse(plan.text()), plan);
    plans.insert(plan.text());
    for (const Fault& fault : plan.faults) {
      kinds.insert(fault.name());
    }
  }
  EXPECT_GT(plans.size(), 700U);
  EXPECT_EQ(kinds.size(), 26U) << "each kind in each direction";
  EXPECT_NE(FaultPlan::random(7, 3), FaultPlan::random(8, 3));
}

TEST(FaultPlan, HasOneForEachDirection) {
  const FaultPlan plan = FaultPlan::parse("answers flip 1 2; requests cut 3 4; answers stop 5 0").value();
  EXPECT_EQ(plan.of(Direction::answers).text(), "answers flip 1 2; answers stop 5 0");
  EXPECT_EQ(plan.of(Direction::requests).text(), "requests cut 3 4");
}

TEST(FaultPlan, HasTheEffectOfItsWorstFault) {
  const std::pair<const char*, Effect> cases[] = {
      {"", Effect::whole},
      {"answers delay 1 5; requests split 0 2; answers join 0 3", Effect::whole},
      {"answers garbage 0 72", Effect::whole},
      {"answers garbage 0 73", Effect::missing},
      {"answers early 1 3", Effect::whole},
      {"answers early 0 3", Effect::misplaced},
      {"requests delay 1 5; answers close 10 0", Effect::missing},
      {"requests cut 50 3", Effect::missing},
      {"requests stop 50 0; answers repeat 0 0", Effect::misplaced},
      {"answers reorder 2 0", Effect::misplaced},
      {"answers cut 50 3; answers repeat 0 0", Effect::altered},
      {"answers cut 50 3; answers early 1 3", Effect::altered},
      {"requests flip 50 3; answers delay 0 1", Effect::altered},
      {"requests type 0 2", Effect::altered},
      {"requests value 0 2", Effect::altered}};
  for (const auto& [text, effect] : cases) {
    EXPECT_EQ(FaultPlan::parse(text)->effect(), effect) << text;
  }
}

}  // namespace
}  // namespace keldane::testing
