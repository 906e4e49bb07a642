// Counts what a program takes from the heap, whoever in it asks.
#pragma once

#include <cstddef>

namespace keldane::bench {

/// Calls of malloc, calloc and realloc of all threads while `work` runs. Outside of it the counting costs one
/// byte test.
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
