#include "KeldaneCMM/Source/Entry.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

TEST(GuardedEntry, AnswersWhatItsBodyAnswers) {
  EXPECT_EQ(guardedEntry<int>("Entry", 1, [] { return 2; }), 2);
}

TEST(GuardedEntry, LogsWhatIsThrownAndAnswersOtherwise) {
  const testing::LogCapture log;
  EXPECT_EQ(guardedEntry<int>("Entry", 1, []() -> int { throw std::runtime_error("broken"); }), 1);
  EXPECT_EQ(guardedEntry<int>("Entry", 1, []() -> int { throw 5; }), 1);
  EXPECT_EQ(guardedEntry<int>("Entry", 1, []() -> int { throw std::bad_alloc(); }), 1);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"Entry: broken", "Entry: unknown exception", "Entry: out of memory"}));
}

TEST(GuardedEntry, ThrowsNothingEvenWhenTheLogDoes) {
  setLogReceiver([](std::string_view) { throw std::bad_alloc(); });
  EXPECT_EQ(guardedEntry<int>("Entry", 1, []() -> int { throw std::runtime_error("broken"); }), 1);
  gLoggingEnabled = true;
  logEntry("Entry:");
  gLoggingEnabled = false;
  setLogReceiver({});
}

TEST(GuardedStatus, TellsThatMemoryRanOutFromAllElse) {
  const testing::LogCapture log;
  EXPECT_EQ(guardedStatus("Entry", [] { return OSStatus{-5}; }), -5);
  EXPECT_EQ(guardedStatus("Entry", []() -> OSStatus { throw std::bad_alloc(); }), memFullErr);
  EXPECT_EQ(guardedStatus("Entry", []() -> OSStatus { throw std::runtime_error("broken"); }), kNoErr);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Entry: out of memory", "Entry: broken"}));
}

TEST(LogEntry, WritesTheLineWhenTheLogIsOn) {
  const testing::LogCapture log;
  logEntry("Entry:");
  EXPECT_TRUE(log.lines().empty());
  gLoggingEnabled = true;
  logEntry("Entry:");
  gLoggingEnabled = false;
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Entry:"}));
}

/// Tests that the entries still work when the log throws.
class BrokenLog : public testing::MenuTest {
 protected:
  BrokenLog() {
    setLogReceiver([](std::string_view) { throw std::bad_alloc(); });
    gLoggingEnabled = true;
  }
  ~BrokenLog() override {
    gLoggingEnabled = false;
    setLogReceiver({});
  }
};

TEST_F(BrokenLog, KeepsTheReferenceCountRight) {
  EXPECT_EQ(KeldanePlugin_AddRef(instance_), 2U);
  void* answer = nullptr;
  EXPECT_EQ(KeldanePlugin_QueryInterface(instance_, CFUUIDGetUUIDBytes(iUnknownID()), &answer), S_OK);
  EXPECT_EQ(KeldanePlugin_Release(instance_), 2U);
  EXPECT_EQ(KeldanePlugin_Release(instance_), 1U);
}

TEST_F(BrokenLog, CostsNoMenu) {
  installWithoutDaemon();
  EXPECT_EQ(examine({file("a")}), kNoErr);
  EXPECT_TRUE(menu());
  cleanup();
  EXPECT_EQ(instance_->module, nullptr);
}

}  // namespace
}  // namespace keldane
