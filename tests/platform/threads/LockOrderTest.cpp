#include "platform/threads/LockOrder.h"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/threads/ConditionLock.h"
#include "platform/threads/Mutex.h"

namespace keldane {
namespace {

#if defined(KELDANE_LOCK_ORDER)

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class LockOrderTest : public ::testing::Test {
 protected:
  LockOrderTest() {
    LockOrder::setListener([this](const std::string& finding) { findings_.push_back(finding); });
  }
  ~LockOrderTest() override { LockOrder::setListener({}); }

  /// Takes the locks in this order and releases them all.
  template <class... Locks>
  static void take(Locks&... locks) KELDANE_NO_THREAD_SAFETY_ANALYSIS {
    (locks.lock(), ...);
    (locks.unlock(), ...);
  }

  std::vector<std::string> findings_;  // every test takes its locks on one thread at a time
  Mutex a_{{.name = "A"}};
  Mutex b_{{.name = "B"}};
  Mutex c_{{.name = "C"}};
};

TEST_F(LockOrderTest, OneOrderIsFine) {
  take(a_, b_, c_);
  take(a_, c_);
  take(b_, c_);
  take(c_);
  take(a_, b_, c_);
  EXPECT_THAT(findings_, IsEmpty());
}

TEST_F(LockOrderTest, AnInversionIsFoundWithTheLocksOfBothThreadsThoughNobodyWaited) {
  std::thread([&] { take(a_, b_); }).join();
  std::thread([&] { take(b_, a_); }).join();
  EXPECT_THAT(findings_, ElementsAre("A thread that holds B takes A, but\n  a thread that held A took B"));
}

TEST_F(LockOrderTest, AnInversionOverSeveralThreadsIsFound) {
  take(a_, b_);
  take(b_, c_);
  take(c_, a_);
  EXPECT_THAT(findings_, ElementsAre("A thread that holds C takes A, but\n  a thread that held A took B\n"
                                     "  a thread that held B took C"));
}

TEST_F(LockOrderTest, AnInversionFurtherUpIsFound) {
  take(b_, c_);
  take(a_, b_);
  findings_.clear();
  take(c_, a_);
  EXPECT_THAT(findings_, ElementsAre(AllOf(HasSubstr("a thread that held A took B"),
                                           HasSubstr("a thread that held B took C"))));
}

TEST_F(LockOrderTest, AllThatAThreadHeldIsNamed) {
  take(a_, b_, c_);
  take(c_, a_);
  EXPECT_THAT(findings_, ElementsAre("A thread that holds C takes A, but\n  a thread that held A, B took C"));
}

TEST_F(LockOrderTest, ABreachOfAStatedOrderIsFoundThoughNobodyKeptItYet) {
  a_.record().comesBefore(b_.record());
  take(b_, a_);
  EXPECT_THAT(findings_, ElementsAre("A thread that holds B takes A, but\n  A is stated to come before B"));
}

TEST_F(LockOrderTest, NothingIsTakenUnderALeaf) {
  Mutex leaf{{.name = "leaf", .leaf = true}};
  take(a_, leaf);
  EXPECT_THAT(findings_, IsEmpty());
  take(leaf, b_);
  EXPECT_THAT(findings_,
              ElementsAre("Nothing is to be taken under leaf, but a thread that holds leaf takes B"));
}

TEST_F(LockOrderTest, WhatIsHeldCannotBeTakenAgain) {
  struct Stopped : std::runtime_error {
    using runtime_error::runtime_error;
  };
  LockOrder::setListener([](const std::string& finding) { throw Stopped(finding); });
  a_.lock();
  const auto again = [&]() KELDANE_NO_THREAD_SAFETY_ANALYSIS { a_.lock(); };
  EXPECT_THROW(again(), Stopped);
  a_.unlock();
}

TEST_F(LockOrderTest, AListenerThatGoesOnHearsOnceOfALockThatIsTakenAgain) {
  b_.lock();
  a_.lock();
  findings_.clear();
  a_.record().willTake();
  EXPECT_THAT(findings_, ElementsAre("A is taken again by a thread that holds B, A"));
  a_.unlock();
  b_.unlock();
}

TEST_F(LockOrderTest, MoreLocksThanCanBeNotedAreAFinding) {
  constexpr int kNoted = 64;
  for (int i = 0; i < kNoted; ++i) {
    a_.record().taken();
  }
  EXPECT_THAT(findings_, IsEmpty());
  a_.record().taken();
  EXPECT_THAT(findings_, ElementsAre("A thread takes more locks than can be noted, the last of them A"));
  for (int i = 0; i < kNoted; ++i) {
    a_.record().released();
  }
  EXPECT_EQ(findings_.size(), 1U);
}

TEST_F(LockOrderTest, AMonitorCanBeTakenAgainAndIsHeldUntilTheLastRelease) {
  Monitor monitor{{.name = "monitor"}};
  take(monitor, b_, monitor);
  EXPECT_THAT(findings_, IsEmpty());
  take(b_, monitor);
  EXPECT_EQ(findings_.size(), 1U);
}

TEST_F(LockOrderTest, AConditionLockHasAPlaceInTheOrderToo) {
  ConditionLock lock(0, {.name = "condition", .heldWhileWaiting = true});
  lock.lockWhenCondition(0);
  take(a_);
  lock.unlockWithCondition(1);
  take(a_, lock);
  EXPECT_THAT(findings_, ElementsAre("A thread that holds A takes condition, but\n"
                                     "  a thread that held condition took A"));
}

TEST_F(LockOrderTest, AWaitForAConditionUnderAnotherLockIsFound) {
  ConditionLock lock(0, {.name = "condition"});
  Mutex call{{.name = "call", .heldWhileWaiting = true}};
  {
    const ScopedLock guard(call);
    lock.lockWhenCondition(0);
    lock.unlock();
  }
  EXPECT_THAT(findings_, IsEmpty());
  {
    const ScopedLock guard(a_);
    lock.lockWhenCondition(0);
    lock.unlock();
  }
  EXPECT_THAT(findings_, ElementsAre("A thread waits for a condition of condition while it holds A"));
}

TEST_F(LockOrderTest, AnInnermostLockMayBeTakenUnderALeafAndNothingUnderIt) {
  Mutex leaf{{.name = "leaf", .leaf = true}};
  Mutex inner{{.name = "inner", .innermost = true}};
  Mutex other{{.name = "other", .innermost = true}};
  take(leaf, inner);
  EXPECT_THAT(findings_, IsEmpty());
  take(inner, other);
  EXPECT_THAT(findings_,
              ElementsAre("Nothing is to be taken under inner, but a thread that holds inner takes other"));
}

TEST_F(LockOrderTest, AConditionVariableIsAWaitAndReleasesItsMutex) {
  Condition changed;
  {
    const ScopedLock guard(b_);
    changed.waitFor(b_, std::chrono::milliseconds(1), [] { return false; });
  }
  EXPECT_THAT(findings_, IsEmpty());
  {
    const ScopedLock first(a_);
    const ScopedLock second(b_);
    changed.waitFor(b_, std::chrono::milliseconds(1), [] { return false; });
  }
  EXPECT_THAT(findings_, ElementsAre("A thread waits for a condition of B while it holds A"));
}

TEST_F(LockOrderTest, AWaitThatWasGivenUpLeavesNothingHeld) {
  ConditionLock lock(0, {.name = "condition", .leaf = true});
  if (lock.lockWhenCondition(1, [] { return true; })) {
    lock.unlock();
  }
  take(a_);
  EXPECT_THAT(findings_, IsEmpty());
}

TEST_F(LockOrderTest, AReleaseByAThreadThatDoesNotHoldItIsFound) {
  a_.record().taken();
  std::thread([&] { a_.record().released(); }).join();
  EXPECT_THAT(findings_, ElementsAre("A is released by a thread that does not hold it"));
  a_.record().released();
}

TEST_F(LockOrderTest, LocksMayBeReleasedInAnyOrder) {
  a_.lock();
  b_.lock();
  a_.unlock();
  c_.record().willWait();
  b_.unlock();
  c_.record().willWait();
  EXPECT_THAT(findings_, ElementsAre("A thread waits for a condition of C while it holds B"));
}

TEST_F(LockOrderTest, WhatIsGoneIsForgotten) {
  auto other = std::make_unique<Mutex>(LockTraits{.name = "other"});
  take(a_, *other);
  take(*other, b_);
  other.reset();
  take(b_, a_);
  EXPECT_THAT(findings_, IsEmpty());
}

TEST(LockOrderDeathTest, WithoutAListenerAFindingEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Mutex a{{.name = "A"}};
  Mutex b{{.name = "B"}};
  a.record().comesBefore(b.record());
  EXPECT_DEATH(
      {
        const ScopedLock second(b);
        const ScopedLock first(a);
      },
      "A is stated to come before B");
}

#else

TEST(LockOrderTest, CostsNothingWhereItIsNotBuiltIn) {
  static_assert(sizeof(Mutex) == sizeof(std::mutex));
  static_assert(sizeof(Monitor) == sizeof(std::recursive_mutex));
  Mutex a{{.name = "A"}};
  Mutex b{{.name = "B"}};
  b.record().comesBefore(a.record());
  const ScopedLock first(a);
  const ScopedLock second(b);
}

#endif

}  // namespace
}  // namespace keldane
