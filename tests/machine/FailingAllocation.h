// Memory that runs out at a chosen moment. Linking FailingAllocation.cpp replaces the program's operator new,
// and the malloc of the code that is linked into it.
#pragma once

#include <climits>

namespace keldane::testing {

/// Counts the allocations of some threads while it is on, and fails some of them. Only one may exist at a
/// time.
class FailingAllocation {
 public:
  enum class On { thisThread, otherThreads };

  /// Fails the `nth` counted allocation (from 1) and the `howMany` - 1 after it. It is off at first.
  FailingAllocation(On threads, long nth, long howMany = 1);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// Switches the counting on while the work runs.
  template <class Work>
  auto during(const Work& work) {
    const Switch on;
    return work();
  }

  static constexpr long kAllThatFollow = LONG_MAX;
  bool failed() const;

  /// The number of living blocks of operator new in the whole process.
  static long liveBlocks();

 private:
  struct Switch {
    Switch();
    ~Switch();
    Switch(const Switch&) = delete;
    Switch& operator=(const Switch&) = delete;
  };
};

}  // namespace keldane::testing
