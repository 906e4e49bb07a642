#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <csignal>

#include "Common/transport/KeldSocket.h"
#include "platform/runloop/RunLoop.h"
#include "tests/Common/transport/KeldSocketFixture.h"

namespace keldane {
namespace {

using testing::DataDelegate;
using testing::eventually;
using testing::Message;
using testing::Messages;
using testing::RawConnection;

// In seconds: far above the 0.2 s in which a thread leaves, and below the second that follows a failure.
constexpr double kSoon = 0.7;

class KeldSocketThreadsTest : public testing::KeldSocketTest {
 protected:
  /// The time from closing the socket until its thread has released it.
  double secondsToLeave() {
    const auto start = std::chrono::steady_clock::now();
    socket_->close();
    EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
};

TEST_F(KeldSocketThreadsTest, TellsItsDelegateThatItIsConnected) {
  RawConnection peer = connect();
  EXPECT_TRUE(eventually([&] { return delegate_->connected == 1; }));
}

TEST_F(KeldSocketThreadsTest, DeliversMessagesAsTheyCome) {
  RawConnection peer = connect();
  peer.writeFrame(1, "request");
  peer.writeFrame(2, "");
  peer.writeFrame(77, "unknown types are delivered too");
  ASSERT_TRUE(data_->waitFor(3));
  EXPECT_EQ(data_->all(), (Messages{{1, "request"}, {2, "(none)"}, {77, "unknown types are delivered too"}}));
}

TEST_F(KeldSocketThreadsTest, DeliversMessagesThatComeByteByByteAndJoined) {
  RawConnection peer = connect();
  for (const char byte : RawConnection::frame(1, "slow")) {
    peer.write(std::string(1, byte));
  }
  peer.write(RawConnection::frame(2, "one") + RawConnection::frame(2, "two"));
  ASSERT_TRUE(data_->waitFor(3));
  EXPECT_EQ(data_->all(), (Messages{{1, "slow"}, {2, "one"}, {2, "two"}}));
}

TEST_F(KeldSocketThreadsTest, ADataDelegateMaySetItselfAgainWhileItIsCalled) {
  data_->onMessage = [this] { socket_->setDataDelegate(data_); };
  RawConnection peer = connect();
  peer.writeFrame(1, "one");
  peer.writeFrame(1, "two");
  EXPECT_TRUE(data_->waitFor(2));
}

TEST_F(KeldSocketThreadsTest, DeliversALargeMessage) {
  RawConnection peer = connect();
  const std::string large(5'000'000, 'x');
  std::thread writer([&] {
    const std::string frame = RawConnection::frame(2, large);
    for (std::size_t i = 0; i < frame.size(); i += 100'000) {
      peer.write(frame.substr(i, 100'000));
    }
  });
  ASSERT_TRUE(data_->waitFor(1));
  writer.join();
  EXPECT_EQ(data_->all()[0].second, large);
}

TEST_F(KeldSocketThreadsTest, DeliversMessagesOfEverySizeThatComeTogether) {
  RawConnection peer = connect();
  Messages sent;
  std::string bytes;
  for (const std::size_t size : {1U, 4051U, 4052U, 4053U, 4095U, 4096U, 4097U, 0U, 9000U, 44U, 3U}) {
    sent.emplace_back(1, size == 0 ? "(none)" : std::string(size, static_cast<char>('a' + size % 26)));
    bytes += RawConnection::frame(1, size == 0 ? "" : sent.back().second);
  }
  peer.write(bytes);
  ASSERT_TRUE(data_->waitFor(sent.size()));
  EXPECT_EQ(data_->all(), sent);
}

TEST_F(KeldSocketThreadsTest, GarbageIsPassedOverInWholeSteps) {
  RawConnection peer = connect();
  peer.write(std::string(72, '?') + RawConnection::frame(1, "after two steps"));
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "after two steps"}}));
  EXPECT_EQ(log_.count("KeldaneSocket Expecting a UUID, got something else..."), 2U);
}

TEST_F(KeldSocketThreadsTest, GarbageThatIsShorterCostsTheMessageBehindIt) {
  RawConnection peer = connect();
  // 10 bytes of garbage push the frame of 98 bytes out of step. Together they fill three steps of 36 bytes,
  // so the next frame is in step again.
  peer.write(std::string(10, '?') + RawConnection::frame(1, std::string(54, 'l')));
  peer.writeFrame(1, "heard again");
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "heard again"}}));
}

TEST_F(KeldSocketThreadsTest, ALengthThatNeverArrivesTakesNoMemory) {
  RawConnection peer = connect();
  peer.write(std::string(testing::kMarkerText) + std::string("\2\0\0\0\xFF\xFF\xFF\xFF", 8) + "few");
  peer.close();
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all()[0], (std::pair<std::int32_t, std::string>{0, "(none)"}));
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss, 2'000'000) << "kilobytes";
}

TEST_F(KeldSocketThreadsTest, TheEndOfTheStreamIsReportedAfterASecondAndAgainUntilClosed) {
  RawConnection peer = connect();
  const auto start = std::chrono::steady_clock::now();
  peer.close();
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  EXPECT_EQ(data_->all()[0], (std::pair<std::int32_t, std::string>{0, "(none)"}));
  ASSERT_TRUE(data_->waitFor(2));
  EXPECT_TRUE(eventually([&] { return delegate_->failed >= 2; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1800));
  EXPECT_GE(log_.count("KeldaneSocket read from socket failed"), 2U);
  socket_->close();
  const int failed = delegate_->failed;
  std::this_thread::sleep_for(std::chrono::milliseconds(1300));
  EXPECT_EQ(delegate_->failed, failed) << "nothing is reported once closed";
}

TEST_F(KeldSocketThreadsTest, CanBeClosedFromWithinItsDelegate) {
  delegate_->closesOnFailure = true;
  RawConnection peer = connect();
  peer.close();
  EXPECT_TRUE(eventually([&] { return socket_->isZombie(); }));
  EXPECT_EQ(delegate_->failed, 1);
}

TEST_F(KeldSocketThreadsTest, TellsTheMainThreadWhenAsked) {
  socket_->setCallDelegateOnMainThread(true);
  RawConnection peer = connect();
  EXPECT_TRUE(eventually([] { return RunLoop::main().load().work == 1; }));
  EXPECT_EQ(delegate_->connected, 0);
  RunLoop::main().runDue();
  EXPECT_EQ(delegate_->connected, 1);
  peer.close();
  EXPECT_TRUE(testing::eventuallyRunning([&] { return delegate_->failed == 1; }));
  EXPECT_EQ(delegate_->failedThread.load(), std::this_thread::get_id());
}

TEST_F(KeldSocketThreadsTest, ClosingTakesBackWhatIsStillQueued) {
  socket_->setCallDelegateOnMainThread(true);
  RawConnection peer = connect();
  EXPECT_TRUE(eventually([] { return RunLoop::main().load().work == 1; }));
  socket_->close();
  EXPECT_EQ(RunLoop::main().load(), RunLoop::Load{});
}

TEST_F(KeldSocketThreadsTest, MessagesWaitUntilThereIsADataDelegate) {
  EXPECT_TRUE(socket_->connectToPath(peer_.path()));
  RawConnection peer = peer_.accept();
  peer.writeFrame(1, "early");
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  socket_->setDataDelegate(data_);
  ASSERT_TRUE(data_->waitFor(1));
}

TEST_F(KeldSocketThreadsTest, ClosingReleasesAThreadThatWaitsForADataDelegate) {
  EXPECT_TRUE(socket_->connectToPath(peer_.path()));
  RawConnection peer = peer_.accept();
  peer.writeFrame(1, "early");
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto start = std::chrono::steady_clock::now();
  socket_->close();
  EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(KeldSocketThreadsTest, LeavesAtOnceWhenItWaitsForAMessage) {
  RawConnection peer = connect();
  EXPECT_TRUE(eventually([&] { return delegate_->connected == 1; }));
  EXPECT_LT(secondsToLeave(), kSoon);
  EXPECT_TRUE(data_->all().empty()) << "and reports nothing";
  EXPECT_EQ(delegate_->failed, 0);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(KeldSocketThreadsTest, LeavesAtOnceInTheMiddleOfAMessage) {
  RawConnection peer = connect();
  peer.write(RawConnection::frame(1, "cut off").substr(0, 46));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_LT(secondsToLeave(), kSoon);
  EXPECT_TRUE(data_->all().empty());
}

TEST_F(KeldSocketThreadsTest, LeavesAtOnceInTheSecondAfterAFailure) {
  RawConnection peer = connect();
  peer.close();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_LT(secondsToLeave(), kSoon);
  EXPECT_TRUE(data_->all().empty());
  EXPECT_EQ(delegate_->failed, 0);
}

TEST_F(KeldSocketThreadsTest, LeavesAtOnceBetweenTwoTriesOfAReadThatWouldBlock) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  RawConnection peer(ends[1]);
  socket_->setDataDelegate(data_);
  socket_->setSocket(ends[0]);
  ASSERT_TRUE(socket_->start());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  peer.writeFrame(1, "after some idling");
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "after some idling"}})) << "it was no failure";
  EXPECT_LT(secondsToLeave(), kSoon);
}

TEST_F(KeldSocketThreadsTest, WhatAReadThatWouldBlockLeavesOutOfAPayloadIsZero) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  RawConnection peer(ends[1]);
  socket_->setDataDelegate(data_);
  socket_->setSocket(ends[0]);
  const std::string large(100'000, 'x');
  peer.write(RawConnection::frame(1, "four").substr(0, 46));
  ASSERT_TRUE(socket_->start());
  ASSERT_TRUE(data_->waitFor(1));
  peer.write(RawConnection::frame(2, large).substr(0, 44 + 70'000));
  ASSERT_TRUE(data_->waitFor(2));
  EXPECT_EQ(data_->all()[0], (Message{1, std::string("fo\0\0", 4)}));
  const Message second = data_->all()[1];
  EXPECT_EQ(second.first, 2);
  EXPECT_EQ(second.second.size(), large.size());
  EXPECT_EQ(second.second.find('\0'), second.second.find_last_of('x') + 1)
      << "what came, and then nothing but zeros";
  EXPECT_LT(secondsToLeave(), kSoon);
}

TEST_F(KeldSocketThreadsTest, APayloadOfWhichNothingComesIsAFailure) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  RawConnection peer(ends[1]);
  socket_->setDataDelegate(data_);
  socket_->setSocket(ends[0]);
  peer.write(RawConnection::frame(1, "four").substr(0, 44));
  ASSERT_TRUE(socket_->start());
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all()[0], (Message{0, "(none)"}));
  EXPECT_LT(secondsToLeave(), kSoon);
}

// Uses a descriptor whose reads do not wait, with bytes that are there when the receive thread starts.
class ReadsThatWouldBlock : public KeldSocketThreadsTest {
 protected:
  void startWith(const std::string& bytes) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    other_ = RawConnection(ends[1]);
    socket_->setDataDelegate(data_);
    socket_->setSocket(ends[0]);
    other_.write(bytes);
    ASSERT_TRUE(socket_->start());
  }
  /// Waits until the thread has read everything that was written.
  void waitUntilTaken() {
    EXPECT_TRUE(eventually([&] {
      int left = 0;
      return ioctl(other_.descriptor(), SIOCOUTQ, &left) == 0 && left == 0;
    }));
  }
  const std::string marker_{testing::kMarkerText};
  RawConnection other_{-1};
};

TEST_F(ReadsThatWouldBlock, AfterOneByteOfAMarkerBeginItAnew) {
  startWith("8");
  waitUntilTaken();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  other_.writeFrame(1, "whole");
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "whole"}}));
  EXPECT_FALSE(log_.has("KeldaneSocket Expecting a UUID, got something else..."));
}

TEST_F(ReadsThatWouldBlock, AfterMoreBytesOfAMarkerCompareWhatThereIs) {
  std::size_t wrong = 0;
  startWith("");
  for (const std::size_t size : {2U, 35U}) {
    other_.write(marker_.substr(0, size));
    ++wrong;
    EXPECT_TRUE(eventually([&] {
      return log_.count("KeldaneSocket Expecting a UUID, got something else...") == wrong;
    })) << size;
  }
  other_.writeFrame(1, "whole");
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "whole"}}));
}

TEST_F(ReadsThatWouldBlock, AreAFailureWhereATypeBegins) {
  startWith(marker_);
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all()[0], (Message{0, "(none)"}));
}

TEST_F(ReadsThatWouldBlock, AreAFailureWhereALengthBegins) {
  startWith(marker_ + std::string("\1\0\0\0", 4));
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all()[0], (Message{0, "(none)"}));
}

TEST_F(ReadsThatWouldBlock, LeaveTheRestOfALengthZero) {
  startWith(marker_ + std::string("\1\0\0\0\0", 5));
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all()[0], (Message{1, "(none)"}));
}

TEST_F(KeldSocketThreadsTest, ReceivesAgainWhenItIsConnectedAgain) {
  RawConnection first = connect();
  first.writeFrame(1, "one");
  ASSERT_TRUE(data_->waitFor(1));
  socket_->close();
  ASSERT_TRUE(socket_->connectToPath(peer_.path()));
  EXPECT_TRUE(socket_->isZombie()) << "it was closed once";
  EXPECT_TRUE(socket_->isReceiving());
  RawConnection second = peer_.accept();
  second.writeFrame(2, "two");
  ASSERT_TRUE(data_->waitFor(2));
  EXPECT_EQ(data_->all(), (Messages{{1, "one"}, {2, "two"}}));
  EXPECT_LT(secondsToLeave(), kSoon);
}

TEST_F(KeldSocketThreadsTest, CanBeConnectedAgainOnItsOwnThread) {
  std::atomic<bool> isConnected = false;
  std::vector<std::thread::id> threads;
  data_->onMessage = [&] {
    threads.push_back(std::this_thread::get_id());
    if (threads.size() == 1) {
      socket_->close();
      isConnected = socket_->connectToPath(peer_.path());
    }
  };
  RawConnection first = connect();
  first.write(RawConnection::frame(1, "one") + RawConnection::frame(1, "of the old link"));
  ASSERT_TRUE(eventually([&] { return isConnected.load(); }));
  RawConnection second = peer_.accept();
  second.writeFrame(2, "two");
  ASSERT_TRUE(data_->waitFor(2));
  EXPECT_EQ(data_->all(), (Messages{{1, "one"}, {2, "two"}}));
  EXPECT_LT(secondsToLeave(), kSoon);
}

TEST_F(KeldSocketThreadsTest, AMessageThatEndsAnywhereIsAFailure) {
  constexpr std::size_t kEnds[] = {10, 36, 38, 40, 43, 44, 50};
  struct Link {
    std::shared_ptr<KeldaneSocket> socket = KeldaneSocket::create();
    std::shared_ptr<DataDelegate> data = std::make_shared<DataDelegate>();
  };
  std::vector<Link> links(std::size(kEnds));
  for (std::size_t i = 0; i < links.size(); ++i) {
    links[i].socket->setDataDelegate(links[i].data);
    ASSERT_TRUE(links[i].socket->connectToPath(peer_.path()));
    peer_.accept().write(RawConnection::frame(1, "seven b").substr(0, kEnds[i]));
  }
  for (std::size_t i = 0; i < links.size(); ++i) {
    EXPECT_TRUE(links[i].data->waitFor(1));
    EXPECT_EQ(links[i].data->all()[0], (Message{0, "(none)"})) << "after " << kEnds[i] << " bytes";
    links[i].socket->close();
    EXPECT_TRUE(eventually([&] { return links[i].socket.use_count() == 1; }));
  }
}

TEST_F(KeldSocketThreadsTest, WhatADelegateThrowsGoesNoFurther) {
  struct Thrower : KeldSocketDelegate {
    void socketConnected(const std::shared_ptr<KeldaneSocket>&) override { throw 7; }
  };
  socket_->setSocketDelegate(std::make_shared<Thrower>());
  socket_->setDataDelegate(data_);
  data_->onMessage = [] { throw std::runtime_error("thrown"); };
  ASSERT_TRUE(socket_->connectToPath(peer_.path()));
  RawConnection peer = peer_.accept();
  peer.writeFrame(1, "one");
  peer.writeFrame(1, "two");
  ASSERT_TRUE(data_->waitFor(2));
  EXPECT_EQ(data_->all(), (Messages{{1, "one"}, {1, "two"}}));
  EXPECT_TRUE(log_.has("KeldaneSocket caught an unknown exception."));
  EXPECT_TRUE(log_.has("KeldaneSocket caught an exception: thrown"));
}

TEST_F(KeldSocketThreadsTest, TheHostsSignalsAreNotForThem) {
  sigset_t here;
  pthread_sigmask(SIG_SETMASK, nullptr, &here);
  std::atomic<bool> blocked = false;
  data_->onMessage = [&] {
    sigset_t there;
    pthread_sigmask(SIG_SETMASK, nullptr, &there);
    blocked = sigismember(&there, SIGUSR1) == 1 && sigismember(&there, SIGCHLD) == 1 &&
              sigismember(&there, SIGTERM) == 1;
  };
  RawConnection peer = connect();
  peer.writeFrame(1, "");
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_TRUE(eventually([&] { return blocked.load(); }));
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGUSR1), sigismember(&here, SIGUSR1)) << "the host's thread is as it was";
}
}  // namespace
}  // namespace keldane
