#include "bench/Allocations.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<bool> counting = false;
std::atomic<std::size_t> calls = 0;

void count() {
  if (counting.load(std::memory_order_relaxed)) {
    calls.fetch_add(1, std::memory_order_relaxed);
  }
}

}  // namespace

// The C library's own functions, which stay available when this file replaces malloc and its relatives.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) {
  count();
  return __libc_malloc(size);
}
void* calloc(std::size_t number, std::size_t size) {
  count();
  return __libc_calloc(number, size);
}
void* realloc(void* memory, std::size_t size) {
  count();
  return __libc_realloc(memory, size);
}
}

namespace keldane::bench {

AllocationCount::AllocationCount() : before_(::calls) { counting = true; }
AllocationCount::~AllocationCount() { counting = false; }
std::size_t AllocationCount::calls() const { return ::calls - before_; }

}  // namespace keldane::bench
