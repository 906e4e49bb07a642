#include "clients/preferences/worker/OwnerThread.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <thread>

#include "Common/calls/OwnerProtocol.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/RawPeer.h"

namespace keldane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Asks a listener on the second socket; nothing listens on the first.
class OwnerThreadTest : public ::testing::Test {
 protected:
  OwnerThreadTest() { std::filesystem::rename(peer_.path(), ownerSocketPath(peer_.path())); }

  std::future<OwnerAnswer> ask(const char* selector) {
    auto promise = std::make_shared<std::promise<OwnerAnswer>>();
    thread_.ask(selector, {}, [promise](const OwnerAnswer& answer) { promise->set_value(answer); });
    return promise->get_future();
  }

  testing::RawPeer peer_;
  OwnerThread thread_{peer_.path(), [](const std::function<void()>& work) { work(); }};
};

TEST_F(OwnerThreadTest, AsksOneQuestionAfterTheOther) {
  std::future<OwnerAnswer> first = ask("repository:"), second = ask("failures:");
  EXPECT_EQ(thread_.waiting(), 2U);
  for (const char* selector : {"repository:", "failures:"}) {
    testing::RawConnection client = peer_.accept();
    EXPECT_EQ(client.readFrame().value()[2].string(), selector);
    client.answer(PropertyList::dictionary({{"echo", selector}}));
  }
  EXPECT_EQ(first.get().values["echo"].string(), "repository:");
  EXPECT_EQ(second.get().values["echo"].string(), "failures:");
}

TEST_F(OwnerThreadTest, ARefusalHasTheDaemonsSentence) {
  std::future<OwnerAnswer> answer = ask("check:");
  testing::RawConnection client = peer_.accept();
  client.readFrame();
  client.answer(PropertyList::dictionary({{"error", "No room\nis left"}}));
  const OwnerAnswer refused = answer.get();
  EXPECT_EQ(refused.kind, OwnerAnswer::Kind::refused);
  EXPECT_EQ(refused.problem, "No room\\nis left");
  EXPECT_FALSE(refused);
}

TEST_F(OwnerThreadTest, ADaemonThatHangsUpIsUnreachable) {
  std::future<OwnerAnswer> answer = ask("repository:");
  {
    testing::RawConnection client = peer_.accept();
    client.readFrame();
  }
  EXPECT_EQ(answer.get().kind, OwnerAnswer::Kind::unreachable);
}

TEST_F(OwnerThreadTest, CannotBeEndedWhileAnAnswerIsWaitedForAndDeliversNothingAfterwards) {
  bool delivered = false;
  thread_.ask("repository:", {}, [&](const OwnerAnswer&) { delivered = true; });
  testing::RawConnection client = peer_.accept();
  client.readFrame();
  EXPECT_FALSE(thread_.end(milliseconds(10)));
  client.answer(PropertyList::dictionary({}));
  EXPECT_TRUE(thread_.end(seconds(20)));
  EXPECT_FALSE(delivered);
}

TEST(OwnerThreadAlone, SaysThatNobodyIsThere) {
  const testing::TemporaryFolder folder;
  std::promise<OwnerAnswer> promise;
  OwnerThread thread(folder / "none", [](const std::function<void()>& work) { work(); });
  thread.ask("repository:", {}, [&](const OwnerAnswer& answer) { promise.set_value(answer); });
  EXPECT_EQ(promise.get_future().get().kind, OwnerAnswer::Kind::unreachable);
}

}  // namespace
}  // namespace keldane
