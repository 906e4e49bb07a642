// Counts the heap allocations of a program, whichever part of it makes them.
#pragma once

#include <cstddef>

namespace keldane::bench {

/// Counts the calls of malloc, calloc and realloc on all threads while `work` runs. At other times the
/// counting costs one test of a byte.
class AllocationCount {
 public:
  AllocationCount();
  ~AllocationCount();
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;
  std::size_t calls() const;

 private:
  std::size_t before_;
};

}  // namespace keldane::bench
