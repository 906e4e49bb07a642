// Descriptors run out at each step of a menu cycle.
#include <fcntl.h>
#include <sys/resource.h>

#include "tests/faults/CycleFixture.h"

namespace keldane {
namespace {

using testing::Footprint;

// More than a cycle takes at once.
constexpr int kEnough = 12;

/// Leaves this many descriptors to be had while it lives.
class FewDescriptors {
 public:
  explicit FewDescriptors(int free) {
    getrlimit(RLIMIT_NOFILE, &before_);
    int limit = 0;
    for (int found = 0; found <= free; ++limit) {
      found += fcntl(limit, F_GETFD) == -1 ? 1 : 0;
    }
    const rlimit few = {static_cast<rlim_t>(limit - 1), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

class OutOfDescriptors : public testing::CycleFixture {};

TEST_F(OutOfDescriptors, AtAnyStepOfACycleCostsNothingButThatCycle) {
  const Titles kWithoutDaemon = {"-", "-", "Open Keldane Preferences…"};
  cleanCycle(kCommandExclude);
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
    const Cycle clean = cleanCycle(kCommandExclude);
    ASSERT_EQ(clean.examined, kNoErr);
    ASSERT_EQ(clean.menu, few.menu == kUnselected ? kSelected : kUnselected);
    ASSERT_TRUE(testing::eventually([&] { return testing::countOf("task") == threads; }));
    ASSERT_EQ(Footprint(), before);
  }
  EXPECT_GT(degraded, 0);
}

}  // namespace
}  // namespace keldane
