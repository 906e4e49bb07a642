#include "platform/threads/Mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace keldane {
namespace {

TEST(Condition, ReleasesTheMutexWhileItWaitsAndHoldsItAfterwards) {
  Mutex mutex;
  Condition changed;
  int step = 1;
  std::thread other;
  {
    const ScopedLock guard(mutex);
    other = std::thread([&] {
      const ScopedLock others(mutex);  // available only while the first thread waits
      EXPECT_EQ(step, 1);
      step = 2;
      changed.notifyAll();
    });
    changed.wait(mutex, [&] { return step == 2; });
    EXPECT_FALSE(std::async(std::launch::async, [&] {
                   const bool isFree = mutex.try_lock();
                   if (isFree) {
                     mutex.unlock();
                   }
                   return isFree;
                 }).get());
  }
  other.join();
  const bool isFree = mutex.try_lock();
  EXPECT_TRUE(isFree) << "released by the scope";
  if (isFree) {
    mutex.unlock();
  }
}

TEST(Condition, SaysWhetherItCameTrueInTime) {
  Mutex mutex;
  Condition changed;
  const ScopedLock guard(mutex);
  EXPECT_FALSE(changed.waitFor(mutex, std::chrono::milliseconds(1), [] { return false; }));
  EXPECT_TRUE(changed.waitFor(mutex, std::chrono::hours(1), [] { return true; }));
}

TEST(Condition, WakesAllWhoWait) {
  Mutex mutex;
  Condition changed;
  bool isTrue = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      const ScopedLock guard(mutex);
      EXPECT_TRUE(changed.waitFor(mutex, std::chrono::minutes(1), [&] { return isTrue; }));
    });
  }
  {
    const ScopedLock guard(mutex);
    isTrue = true;
  }
  changed.notifyAll();
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace keldane
