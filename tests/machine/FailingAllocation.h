// Memory that runs out at a chosen moment. Linking FailingAllocation.cpp replaces the program's operator new,
// and the malloc of the code that is linked into it.
#pragma once

#include <climits>

namespace keldane::testing {

/// Counts the allocations of some threads while it is on, and fails some of them. One at a time.
class FailingAllocation {
 public:
  enum class On { thisThread, otherThreads };

  /// Of the counted allocations the `nth` (from 1) fails and `howMany` - 1 after it. Off at first.
  FailingAllocation(On threads, long nth, long howMany = 1);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// Runs the work with the counting on, and off again behind it.
  template <class Work>
  auto during(const Work& work) {
    const Switch on;
    return work();
  }

  static constexpr long kAllThatFollow = LONG_MAX;
  bool failed() const;

  /// Blocks of operator new that live now, in the whole process.
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
