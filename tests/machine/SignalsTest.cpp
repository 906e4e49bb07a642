// Signals that interrupt every wait, throughout many menu cycles.
#include <dirent.h>
#include <sys/syscall.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "platform/runloop/RunLoop.h"
#include "tests/machine/CycleFixture.h"

namespace keldane {
namespace {

constexpr int kCycles = 40;

std::atomic<long> interruptions = 0;

/// Sends SIGUSR1 to every other thread of this process again and again. Its handler does not restart calls.
class Storm {
 public:
  Storm() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++interruptions; };
    sigaction(SIGUSR1, &action, &before_);
    thread_ = std::thread([this] { blow(); });
  }
  ~Storm() {
    over_ = true;
    thread_.join();
    sigaction(SIGUSR1, &before_, nullptr);
  }
  Storm(const Storm&) = delete;
  Storm& operator=(const Storm&) = delete;

 private:
  void blow() const {
    const long self = syscall(SYS_gettid);
    while (!over_) {
      for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        const long thread = std::stol(entry.path().filename().string());
        if (thread != self) {
          syscall(SYS_tgkill, getpid(), thread, SIGUSR1);
        }
      }
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  }

  std::atomic<bool> over_ = false;
  struct sigaction before_ {};
  std::thread thread_;
};

class Signals : public testing::CycleFixture {};

TEST_F(Signals, InAnyCallChangeNoMenuAndLoseNoCommand) {
  interruptions = 0;
  const Storm storm;
  for (int i = 0; i < kCycles; ++i) {
    const Cycle choosing = cleanCycle(kCommandBackup);
    ASSERT_EQ(choosing.examined, kNoErr);
    ASSERT_EQ(choosing.menu, kUnselected);
    ASSERT_EQ(choosing.selected, kNoErr);
    ASSERT_TRUE(becomes(kWaiting));
    const Cycle taking = cleanCycle(kCommandExclude);
    ASSERT_EQ(taking.menu, kSelected);
    ASSERT_TRUE(becomes(kNotSelected));
    RunLoop::main().run(RunLoop::Seconds(0.002));
  }
  EXPECT_GT(interruptions, kCycles) << "or there was no storm";
}

}  // namespace
}  // namespace keldane
