#include "tests/machine/FailingAllocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "platform/threads/LockOrder.h"

namespace keldane::testing {

namespace {

std::atomic<bool> on = false;
std::atomic<bool> countsThisThread = false;
std::atomic<long> counted = 0;
std::atomic<long> firstToFail = 0;
std::atomic<long> failures = 0;  // that are still to come
std::atomic<bool> someFailed = false;
std::atomic<long> live = 0;
thread_local bool isThisThread = false;

#if defined(KELDANE_LOCK_ORDER)
[[maybe_unused]] const bool kStopped = (LockOrder::stop(), true);
#endif

bool isToFail() {
  if (!on.load(std::memory_order_relaxed) || isThisThread != countsThisThread.load()) {
    return false;
  }
  if (++counted < firstToFail || failures.fetch_sub(1) <= 0) {
    return false;
  }
  someFailed = true;
  return true;
}

}  // namespace

FailingAllocation::FailingAllocation(On threads, long nth, long howMany) {
  isThisThread = true;
  countsThisThread = threads == On::thisThread;
  counted = 0;
  firstToFail = nth;
  failures = howMany;
  someFailed = false;
}

FailingAllocation::~FailingAllocation() { isThisThread = false; }

FailingAllocation::Switch::Switch() { on = true; }
FailingAllocation::Switch::~Switch() { on = false; }

bool FailingAllocation::failed() const { return someFailed; }
long FailingAllocation::liveBlocks() { return live; }

}  // namespace keldane::testing

using namespace keldane::testing;  // the replaced functions are in no namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) { return isToFail() ? nullptr : __real_malloc(size); }
}

namespace {

void* allocate(std::size_t size) {
  void* block = isToFail() ? nullptr : __real_malloc(size == 0 ? 1 : size);
  live += block == nullptr ? 0 : 1;
  return block;
}

void* allocate(std::size_t size, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  void* block = isToFail() ? nullptr : std::aligned_alloc(step, (size + step - 1) / step * step);
  live += block == nullptr ? 0 : 1;
  return block;
}

void* orThrow(void* block) { return block == nullptr ? throw std::bad_alloc() : block; }

void release(void* block) {
  live -= block == nullptr ? 0 : 1;
  std::free(block);
}

}  // namespace

// clang-format off
void* operator new(std::size_t size) { return orThrow(allocate(size)); }
void* operator new[](std::size_t size) { return orThrow(allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) { return orThrow(allocate(size, alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return orThrow(allocate(size, alignment)); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { release(block); }
// clang-format on
