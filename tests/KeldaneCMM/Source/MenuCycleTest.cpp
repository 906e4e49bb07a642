// Tests that whole menu cycles leave nothing behind.
#include <gtest/gtest.h>

#include "KeldaneCMM/Source/MenuCommands.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"
#include "tests/support/process/Footprint.h"

namespace keldane {
namespace {

using testing::Footprint;
using testing::Selection;

constexpr int kCycles = 1000;

class MenuCycle : public testing::MenuTest {
 protected:
  void cycle(const std::vector<std::string>& paths, std::uint32_t command) {
    Selection selection(paths);
    ASSERT_EQ(examine(selection.get()), kNoErr);
    ASSERT_TRUE(menu());
    ASSERT_EQ(KeldanePlugin_HandleSelection(instance_, selection.get(), static_cast<SInt32>(command)),
              kNoErr);
    AEDisposeDesc(commands_.get());
    cleanup();
  }
  /// Runs one cycle, in which everything is made that is made once in a process.
  void warmUp(const std::string& path) {
    const std::ptrdiff_t threads = testing::countOf("task");
    cycle({path}, kCommandBackup);
    ASSERT_TRUE(testing::eventually([&] {
      if (daemon_) {
        daemon_->hangUp();
      }
      return testing::countOf("task") == threads;
    }));
  }
  /// The daemon runs in this process, so its connections would count. They are ended first.
  void expectFootprint(const Footprint& before) {
    if (daemon_) {
      daemon_->hangUp();
    }
    EXPECT_TRUE(testing::eventually([&] { return Footprint() == before; }))
        << Footprint() << "\nbefore: " << before;
  }
};

TEST_F(MenuCycle, AThousandWithADaemonLeaveNothingBehind) {
  const std::string path = know(file("a.txt"), node(0x60006));
  warmUp(path);
  const Footprint before;
  for (int i = 0; i < kCycles; ++i) {
    cycle({path}, kCommandBackupASAP);
    daemon_->hangUp();
  }
  expectFootprint(before);
}

TEST_F(MenuCycle, AThousandWithoutADaemonLeaveNothingBehind) {
  installWithoutDaemon();
  const std::string path = file("a.txt");
  warmUp(path);
  const Footprint before;
  for (int i = 0; i < kCycles; ++i) {
    cycle({path}, kCommandPreferences);
  }
  expectFootprint(before);
  EXPECT_EQ(opened_.size(), std::size_t{kCycles});
}

TEST_F(MenuCycle, ThatLosesItsDaemonLeavesNothingBehind) {
  const std::string path = know(file("a.txt"), node(2));
  warmUp(path);
  const Footprint before;
  ASSERT_EQ(examine({path}), kNoErr);
  ASSERT_TRUE(daemon_->waitForClients(1));
  daemon_->hangUp();
  // Waits until the failure was reported and the next connection is made.
  EXPECT_TRUE(testing::eventuallyRunning([&] { return daemon_->clients() == 1; }));
  AEDisposeDesc(commands_.get());
  cleanup();
  expectFootprint(before);
}

TEST_F(MenuCycle, WithALostDaemonAndAClosedMenuNeverTriesAgain) {
  const std::string path = know(file("a.txt"), node(2));
  ASSERT_EQ(examine({path}), kNoErr);
  ASSERT_TRUE(daemon_->waitForClients(1));
  daemon_->hangUp();
  EXPECT_TRUE(testing::eventuallyRunning([&] { return RunLoop::main().load().timers == 1; }));
  cleanup();
  EXPECT_EQ(RunLoop::main().load().timers, 0U);
}

TEST_F(MenuCycle, OfTwoInstancesAtOnceHasAConnectionEach) {
  const std::string path = know(file("a.txt"), node(2));
  void* other = KeldanePluginFactory(kCFAllocatorSystemDefault, contextualMenuTypeID());
  ASSERT_EQ(examine({path}), kNoErr);
  const Selection selection({path});
  OwnedDescriptor list;
  AECreateList(nullptr, 0, false, list.get());
  ASSERT_EQ(KeldanePlugin_ExamineContext(other, selection.get(), list.get()), kNoErr);
  EXPECT_TRUE(daemon_->waitForClients(2));
  cleanup();
  AEDisposeDesc(list.get());
  AECreateList(nullptr, 0, false, list.get());
  EXPECT_EQ(KeldanePlugin_ExamineContext(other, selection.get(), list.get()), kNoErr);
  EXPECT_FALSE(testing::readItems(*list.get()).empty());
  KeldanePlugin_PostMenuCleanup(other);
  EXPECT_EQ(KeldanePlugin_Release(other), 0U);
}

}  // namespace
}  // namespace keldane
