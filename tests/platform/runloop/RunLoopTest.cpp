#include "platform/runloop/RunLoop.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <thread>

#include "platform/host/Host.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"

namespace keldane {
namespace {

using Seconds = RunLoop::Seconds;
using testing::LogCapture;

bool isReadable(const RunLoop& loop, int milliseconds = 0) {
  pollfd source{loop.descriptor(), POLLIN, 0};
  return poll(&source, 1, milliseconds) == 1;
}

TEST(RunLoop, RunsQueuedWorkInOrder) {
  RunLoop loop;
  std::string order;
  loop.perform([&] { order += 'a'; });
  loop.perform([&] { order += 'b'; });
  EXPECT_EQ(order, "");
  EXPECT_TRUE(loop.runDue());
  EXPECT_EQ(order, "ab");
  EXPECT_FALSE(loop.runDue());
}

TEST(RunLoop, ItsDescriptorIsReadableExactlyWhileSomethingIsDue) {
  RunLoop loop;
  EXPECT_FALSE(isReadable(loop));
  loop.perform([] {});
  EXPECT_TRUE(isReadable(loop));
  loop.runDue();
  EXPECT_FALSE(isReadable(loop));
  const auto timer = loop.scheduleTimer(Seconds(0.01), false, [](Timer&) {});
  EXPECT_TRUE(isReadable(loop, 20000));
  loop.runDue();
  EXPECT_FALSE(isReadable(loop));
  loop.scheduleTimer(Seconds(0.01), false, [](Timer&) {})->invalidate();
  EXPECT_FALSE(isReadable(loop, 50));
}

TEST(RunLoop, WorkThatQueuesWorkDoesNotKeepAPassFromEnding) {
  RunLoop loop;
  int runs = 0;
  std::function<void()> again = [&] {
    ++runs;
    loop.perform(again);
  };
  loop.perform(again);
  loop.runDue();
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(isReadable(loop)) << "the rest is due";
  loop.runDue();
  EXPECT_EQ(runs, 2);
}

TEST(RunLoop, CancelDropsTheWorkOfAnOwner) {
  RunLoop loop;
  int mine = 0;
  int other = 0;
  loop.perform([&] { ++mine; }, &mine);
  loop.perform([&] { ++other; }, &other);
  loop.cancel(&mine);
  loop.runDue();
  EXPECT_EQ(mine, 0);
  EXPECT_EQ(other, 1);
}

TEST(RunLoop, WorkMayCancelTheWorkBehindIt) {
  RunLoop loop;
  int runs = 0;
  loop.perform([&] { loop.cancel(&runs); });
  loop.perform([&] { ++runs; }, &runs);
  loop.runDue();
  EXPECT_EQ(runs, 0);
}

TEST(RunLoop, ARepeatingTimerKeepsToItsGridAndMakesUpForMissedFiringsByOne) {
  RunLoop loop;
  int firings = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.02), true, [&](Timer&) { ++firings; });
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  loop.runDue();
  EXPECT_EQ(firings, 1);
  EXPECT_TRUE(testing::eventually([&] {
    loop.runDue();
    return firings >= 3;
  }));
  timer->invalidate();
  EXPECT_EQ(loop.load(), RunLoop::Load{});
}

TEST(RunLoop, ATimerThatDoesNotRepeatFiresOnceAndIsGone) {
  RunLoop loop;
  int firings = 0;
  const auto timer = loop.scheduleTimer(Seconds(0.001), false, [&](Timer& self) {
    ++firings;
    EXPECT_FALSE(self.isValid());
  });
  EXPECT_TRUE(timer->isValid());
  loop.run(Seconds(0.05));
  EXPECT_EQ(firings, 1);
  EXPECT_FALSE(timer->isValid());
  EXPECT_EQ(loop.load().timers, 0U);
}

TEST(RunLoop, ATimersCallbackMayInvalidateItselfAndItsOwner) {
  RunLoop loop;
  struct Owner {
    std::shared_ptr<Timer> timer;
    int firings = 0;
  };
  auto owner = std::make_unique<Owner>();
  int firings = 0;
  owner->timer = loop.scheduleTimer(Seconds(0.001), true, [&](Timer&) {
    firings = ++owner->firings;
    owner->timer->invalidate();
    owner.reset();
  });
  loop.run(Seconds(0.05));
  EXPECT_EQ(firings, 1);
  EXPECT_EQ(loop.load().timers, 0U);
}

TEST(RunLoop, AnInvalidatedTimerReleasesItsCallback) {
  RunLoop loop;
  auto held = std::make_shared<int>(1);
  const auto timer = loop.scheduleTimer(Seconds(10), true, [held](Timer&) {});
  EXPECT_EQ(held.use_count(), 2);
  timer->invalidate();
  EXPECT_EQ(held.use_count(), 1);
  timer->invalidate();
}

TEST(RunLoop, ATimerMayOutliveItsLoop) {
  std::shared_ptr<Timer> timer;
  {
    RunLoop loop;
    timer = loop.scheduleTimer(Seconds(10), true, [](Timer&) {});
  }
  EXPECT_FALSE(timer->isValid());
  timer->invalidate();
}

TEST(RunLoop, RunsForAsLongAsItIsAskedTo) {
  RunLoop loop;
  const auto start = std::chrono::steady_clock::now();
  loop.run(Seconds(0.05));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST(RunLoop, StopsWhenAsked) {
  RunLoop loop;
  loop.perform([&] { loop.stop(); });
  const auto start = std::chrono::steady_clock::now();
  loop.run(Seconds(1000));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(100));
}

TEST(RunLoop, AnExceptionEndsItsPieceOfWorkOnly) {
  const LogCapture log;
  RunLoop loop;
  bool later = false;
  loop.perform([] { throw std::runtime_error("broken"); });
  loop.perform([] { throw 7; });
  loop.perform([&] { later = true; });
  loop.runDue();
  EXPECT_TRUE(later);
  EXPECT_TRUE(log.hasPart("broken"));
  EXPECT_TRUE(log.hasPart("unknown exception"));
}

TEST(RunLoop, TakesWorkFromOtherThreads) {
  RunLoop loop;
  std::atomic<int> runs = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        loop.perform([&] { ++runs; });
      }
    });
  }
  EXPECT_TRUE(testing::eventually([&] {
    loop.runDue();
    return runs == 2000;
  }));
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(MessagePort, MessagesBeforeTheLoopComesRoundAreOneMessage) {
  RunLoop loop;
  std::vector<std::uint32_t> ids;
  const auto port = loop.openPort([&](std::uint32_t id) { ids.push_back(id); });
  port->send(1);
  port->send(1);
  port->send(2);
  EXPECT_EQ(loop.load().work, 1U) << "one wake-up";
  loop.runDue();
  EXPECT_EQ(ids, (std::vector<std::uint32_t>{1, 2}));
  port->send(1);
  loop.runDue();
  EXPECT_EQ(ids.size(), 3U);
}

TEST(MessagePort, IsSilentOnceInvalid) {
  RunLoop loop;
  int messages = 0;
  auto port = loop.openPort([&](std::uint32_t) { ++messages; });
  port->send(1);
  port->invalidate();
  port->send(1);
  loop.runDue();
  EXPECT_EQ(messages, 0);
  EXPECT_EQ(loop.load(), RunLoop::Load{});
}

TEST(MessagePort, MayOutliveItsLoopAndEndInItsHandler) {
  std::unique_ptr<MessagePort> port;
  {
    RunLoop loop;
    port = loop.openPort([&](std::uint32_t) { port.reset(); });
    port->send(1);
    loop.runDue();
    EXPECT_EQ(port, nullptr);
    port = loop.openPort([](std::uint32_t) {});
  }
  port->send(1);
}

TEST(RunLoop, EachThreadHasItsOwnAndTheMainThreadTheMainOne) {
  EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
  std::thread([] { EXPECT_NE(&RunLoop::current(), &RunLoop::main()); }).join();
}

TEST(RunLoop, TheMainLoopBelongsToTheThreadThatTheHostDeclares) {
  std::thread([] {
    Host::shared().declareMainThread();
    EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
  }).join();
  EXPECT_NE(&RunLoop::current(), &RunLoop::main());
  Host::shared().declareMainThread();
}

TEST(RunLoop, AThreadsLoopGoesWithItsDescriptors) {
  const auto before = testing::countOf("fd");
  std::thread([] { RunLoop::current().perform([] {}); }).join();
  EXPECT_EQ(testing::countOf("fd"), before);
}

}  // namespace
}  // namespace keldane
