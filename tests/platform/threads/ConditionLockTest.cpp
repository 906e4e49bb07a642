#include "platform/threads/ConditionLock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/Wait.h"

namespace keldane {
namespace {

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

TEST(ConditionLock, WhoHoldsItKeepsItFromAllOthers) {
  ConditionLock lock(0);
  lock.lock();
  std::atomic<pid_t> thread = 0;
  std::atomic<bool> taken = false;
  std::thread other([&] {
    thread = gettid();
    lock.lockWhenCondition(0);
    taken = true;
    lock.unlock();
  });
  EXPECT_TRUE(testing::eventually([&] { return testing::isAsleep(thread); }));
  EXPECT_FALSE(taken);
  lock.unlock();
  other.join();
  EXPECT_TRUE(taken);
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

TEST(ConditionLock, WhoIsWokenWithoutAQuestionGoesOnWaiting) {
  ConditionLock lock(0);
  std::atomic<bool> hasIt = false;
  std::thread waiter([&] {
    lock.lockWhenCondition(1);
    hasIt = true;
    lock.unlock();
  });
  for (int i = 0; i < 1000; ++i) {
    lock.wake();
    std::this_thread::yield();
  }
  lock.lock();
  EXPECT_FALSE(hasIt);
  lock.unlockWithCondition(1);
  waiter.join();
  EXPECT_TRUE(hasIt);
}

TEST(ConditionLock, GoesToTheFirstWhoWaitsForItsCondition) {
  ConditionLock lock(0);
  std::vector<int> order;
  std::vector<std::thread> threads;
  std::atomic<int> asked = 0;
  const auto wait = [&](int name, int condition) {
    threads.emplace_back([&, name, condition] {
      // The predicate is called right before the thread is put on the list, under the same inner mutex.
      if (lock.lockWhenCondition(condition, [&] {
            asked |= 1 << name;
            return false;
          })) {
        order.push_back(name);
        lock.unlock();
      }
    });
    while ((asked & 1 << name) == 0) {
      std::this_thread::yield();
    }
  };
  wait(0, 2);
  wait(1, 1);
  wait(2, 1);
  lock.lock();
  lock.unlockWithCondition(1);
  threads[1].join();
  threads[2].join();
  lock.lock();
  lock.unlockWithCondition(2);
  threads[0].join();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 0}));
}

// Two threads pass a value back and forth. Others interrupt, give up, and take the lock under any condition.
TEST(ConditionLock, LosesNobodyAmongWakingsAndCancellations) {
  constexpr int kRounds = 2000;
  ConditionLock lock(0);
  std::atomic<bool> done = false;
  int sum = 0;
  std::thread taker([&] {
    for (int i = 0; i < kRounds; ++i) {
      lock.lockWhenCondition(1);
      ++sum;
      lock.unlockWithCondition(0);
    }
    done = true;
  });
  std::vector<std::thread> others;
  for (int t = 0; t < 2; ++t) {
    others.emplace_back([&, t] {
      int asked = 0;
      while (!done) {
        lock.wake();
        if (t == 0) {
          lock.lock();
          lock.unlock();
        } else if (lock.lockWhenCondition(5, [&] { return ++asked % 3 == 0 || done; })) {
          ADD_FAILURE() << "nobody gives it that condition";
          lock.unlock();
        }
      }
      lock.wake();
    });
  }
  std::thread waker([&] {
    while (!done) {
      lock.wake();
      std::this_thread::yield();
    }
    lock.wake();
  });
  for (int i = 0; i < kRounds; ++i) {
    if (lock.lockWhenCondition(0, [] { return false; })) {
      lock.unlockWithCondition(1);
    }
  }
  taker.join();
  for (std::thread& other : others) {
    other.join();
  }
  waker.join();
  EXPECT_EQ(sum, kRounds);
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
