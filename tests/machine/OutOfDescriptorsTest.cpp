// Descriptors run out at each step of a menu cycle.
#include "tests/machine/CycleFixture.h"
#include "tests/support/process/FewDescriptors.h"

namespace keldane {
namespace {

using testing::FewDescriptors;
using testing::Footprint;

// More than a cycle uses at a time.
constexpr int kEnough = 12;

class OutOfDescriptors : public testing::CycleFixture {};

TEST_F(OutOfDescriptors, AtAnyStepOfACycleCostsNothingButThatCycle) {
  const Titles kWithoutDaemon = {"-", "-", "Open Keldane Preferences…"};
  checkNextCycle(false);
  const std::ptrdiff_t threads = testing::settledThreadCount();
  const Footprint before;
  int degraded = 0;
  for (int free = 0; free <= kEnough; ++free) {
    SCOPED_TRACE(std::to_string(free) + " descriptors");
    Cycle few;
    {
      const FewDescriptors limit(free);
      few = cleanCycle(kCommandBackup);
    }
    if (few.examined == kNoErr && few.menu == kWithoutDaemon) {
      ++degraded;
    } else if (few.examined == kNoErr) {
      ASSERT_EQ(few.menu, kUnselected);
    } else {
      ASSERT_EQ(few.examined, kParamErr);
      ASSERT_FALSE(few.menu);
    }
    const bool isGiven = few.menu == kUnselected;
    ASSERT_TRUE(becomes(isGiven ? kWaiting : kNotSelected));
    ASSERT_NO_FATAL_FAILURE(checkNextCycle(isGiven));
    ASSERT_TRUE(testing::eventually([&] { return testing::countOf("task") == threads; }));
    ASSERT_EQ(Footprint(), before);
  }
  EXPECT_GT(degraded, 0);
}

}  // namespace
}  // namespace keldane
