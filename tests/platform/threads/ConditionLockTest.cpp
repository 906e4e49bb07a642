#include "platform/threads/ConditionLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace keldane {
namespace {

using std::chrono::steady_clock;

TEST(ConditionLock, IsMadeWithItsCondition) { EXPECT_EQ(ConditionLock(3).condition(), 3); }

TEST(ConditionLock, WaitsForItsCondition) {
  ConditionLock lock(0);
  std::atomic<int> step = 0;
  std::thread waiter([&] {
    lock.lockWhenCondition(1);
    step = 2;
    lock.unlockWithCondition(7);
  });
  lock.lock();
  EXPECT_EQ(step, 0);
  lock.unlockWithCondition(1);
  waiter.join();
  EXPECT_EQ(step, 2);
  EXPECT_EQ(lock.condition(), 7);
}

TEST(ConditionLock, UnlockLeavesTheCondition) {
  ConditionLock lock(5);
  lock.lock();
  lock.unlock();
  EXPECT_EQ(lock.condition(), 5);
}

TEST(ConditionLock, ExcludesOthers) {
  ConditionLock lock(1);
  int value = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        lock.lockWhenCondition(1);
        ++value;
        lock.unlock();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(value, 4000);
}

TEST(ConditionLock, GivesUpAtALimit) {
  ConditionLock lock(0);
  EXPECT_FALSE(lock.lockWhenCondition(1, steady_clock::now() + std::chrono::milliseconds(10)));
  if (lock.lockWhenCondition(0, steady_clock::now() + std::chrono::seconds(20))) {
    lock.unlock();
  } else {
    ADD_FAILURE() << "it was free";
  }
}

TEST(ConditionLock, ACancelledWaiterGoesWithoutTheLock) {
  ConditionLock lock(0);
  std::atomic<bool> cancelled = false;
  std::thread waiter([&] { EXPECT_FALSE(lock.lockWhenCondition(1, [&] { return cancelled.load(); })); });
  cancelled = true;
  lock.wake();
  waiter.join();
  lock.lock();  // nobody holds it
  lock.unlock();
}

TEST(ConditionLock, WhatCanBeHadAtOnceIsHadEvenWhenCancelled) {
  ConditionLock lock(1);
  if (lock.lockWhenCondition(1, [] { return true; })) {
    lock.unlock();
  } else {
    ADD_FAILURE() << "it was free";
  }
}

}  // namespace
}  // namespace keldane
