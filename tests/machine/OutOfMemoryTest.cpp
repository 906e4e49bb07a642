// Memory runs out at each allocation of a menu cycle in turn, on the host's thread and on the plug-in's own.
#include "tests/machine/CycleFixture.h"
#include "tests/machine/FailingAllocation.h"

namespace keldane {
namespace {

using testing::FailingAllocation;
using testing::Footprint;
using testing::Labelled;

/// The threads whose allocations fail, the number of failures in a row, and whether the diagnostic log, which
/// allocates too, is on.
struct Sweep {
  FailingAllocation::On threads;
  long howMany;
  bool logs;
};

class OutOfMemory : public testing::CycleFixture, public ::testing::WithParamInterface<Labelled<Sweep>> {
 protected:
  OutOfMemory() {
    setLogReceiver([](std::string_view) {});
    systemLog("Made once in a process: what the log needs, and the constants.");
    iUnknownID();
    gLoggingEnabled = GetParam().value.logs;
    for (int i = 0; i < 3; ++i) {
      checkNextCycle(false);
    }
    threads_ = testing::settledThreadCount();
    daemonThreads_ = testing::settledThreadCount(daemon_);
  }
  ~OutOfMemory() override {
    gLoggingEnabled = false;
    setLogReceiver({});
  }

  /// The plug-in's threads end a moment after its instance.
  void waitForThreads() {
    ASSERT_TRUE(testing::eventually([&] { return testing::countOf("task") == threads_; }));
  }

  /// Whether the command reached the daemon. A thread of the daemon serves the connection, and ends when
  /// everything that came over it is done.
  bool wasCommanded() {
    EXPECT_TRUE(testing::eventually([&] { return testing::countOf("task", daemon_) == daemonThreads_; }));
    return isShownAs(kWaiting);
  }

  /// Whether the menu is whole. A single failing step may cost one item.
  static bool isAcceptable(const Titles& menu, bool oneMayMiss) {
    if (menu == kUnselected) {
      return true;
    }
    for (std::size_t i = 0; oneMayMiss && i < kUnselected.size(); ++i) {
      Titles without = kUnselected;
      without.erase(without.begin() + static_cast<std::ptrdiff_t>(i));
      if (menu == without) {
        return true;
      }
    }
    return false;
  }

  bool onTheHostsThread() const { return GetParam().value.threads == FailingAllocation::On::thisThread; }

  /// Runs a cycle in which memory runs out, and after it one in which it does not.
  void failAt(long nth) {
    Cycle broken;
    {
      FailingAllocation failing(GetParam().value.threads, nth, GetParam().value.howMany);
      broken = cycle(kCommandBackup, [&](const auto& work) { return failing.during(work); });
      waitForThreads();
      failed_ = failing.failed();
    }
    check(broken);
    if (HasFatalFailure()) {
      return;
    }
    ASSERT_EQ(broken.selected.value_or(kNoErr), kNoErr);
    const bool isGiven = wasCommanded();
    ASSERT_TRUE(isGiven || isShownAs(kNotSelected)) << "a command is given or not";
    checkNextCycle(isGiven);
    if (!HasFatalFailure()) {
      waitForThreads();
    }
  }

  void check(const Cycle& broken) {
    ASSERT_TRUE(broken.examined == kNoErr || broken.examined == memFullErr || broken.examined == kParamErr)
        << broken.examined;
    if (broken.examined != kNoErr) {
      ASSERT_FALSE(broken.menu) << "an error, and a menu all the same";
      ++errors_;
    } else if (broken.made) {
      ASSERT_TRUE(broken.menu) << "neither an error nor a menu";
      ASSERT_TRUE(isAcceptable(*broken.menu, failed_ && onTheHostsThread()))
          << ::testing::PrintToString(*broken.menu);
      lost_ += *broken.menu == kUnselected ? 0 : 1;
    }
  }

  const std::string daemon_ = std::to_string(program_->pid());
  std::ptrdiff_t threads_ = 0, daemonThreads_ = 0;
  bool failed_ = true;
  int steps_ = 0, errors_ = 0, lost_ = 0;
};

TEST_P(OutOfMemory, AtEachAllocationOfACycleCostsNothingButThatCycle) {
  const long stride = testing::faultStride(onTheHostsThread() ? 17 : 7);
  const Footprint before;
  long blocks = 0;
  for (long nth = 1; failed_; nth += stride, ++steps_) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    if (steps_ == 0) {
      blocks = FailingAllocation::liveBlocks();
    }
    failAt(nth);
    if (HasFatalFailure()) {
      return;
    }
    ASSERT_EQ(Footprint(), before);
    // The observer's thread, too, releases an answer a moment after it has handed it over.
    ASSERT_TRUE(testing::eventually([&] { return FailingAllocation::liveBlocks() == blocks; }))
        << FailingAllocation::liveBlocks() << " blocks of memory, and " << blocks << " before";
  }
  std::cout << GetParam().label << ": " << steps_ << " cycles, every " << stride << ". allocation; "
            << errors_ << " answered with an error, " << lost_ << " with an item less\n";
  EXPECT_GT(errors_, 0);
}

constexpr long kAll = FailingAllocation::kAllThatFollow;
const Labelled<Sweep> kSweeps[] = {
    {"OnceOnTheHostsThread", {FailingAllocation::On::thisThread, 1, false}},
    {"FromThenOnOnTheHostsThread", {FailingAllocation::On::thisThread, kAll, true}},
    {"OnceOnItsOwnThreads", {FailingAllocation::On::otherThreads, 1, true}},
    {"FromThenOnOnItsOwnThreads", {FailingAllocation::On::otherThreads, kAll, false}},
};

INSTANTIATE_TEST_SUITE_P(Faults, OutOfMemory, ::testing::ValuesIn(kSweeps), testing::byLabel);

}  // namespace
}  // namespace keldane
