#include "Common/KeldSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "log/KeldaneLog.h"
#include "platform/objects/Exceptions.h"
#include "platform/runloop/RunLoop.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawPeer.h"
#include "tests/support/Wait.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::LogCapture;
using testing::RawConnection;
using testing::RawPeer;
using testing::TemporaryFolder;

struct SocketDelegate : KeldSocketDelegate {
  void socketConnected(const std::shared_ptr<KeldaneSocket>&) override { ++connected; }
  void socketFailed(const std::shared_ptr<KeldaneSocket>& socket) override {
    ++failed;
    failedThread = std::this_thread::get_id();
    if (closesOnFailure) {
      socket->close();
    }
  }
  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
    const std::lock_guard guard(mutex);
    children.push_back(child);
  }
  std::size_t childCount() {
    const std::lock_guard guard(mutex);
    return children.size();
  }
  std::atomic<int> connected = 0, failed = 0;
  std::atomic<std::thread::id> failedThread;
  std::atomic<bool> closesOnFailure = false;
  std::mutex mutex;
  std::vector<std::shared_ptr<KeldaneSocket>> children;
};

struct DataDelegate : KeldaneSocketDelegate {
  bool processData(const Bytes* payload, std::int32_t type) override {
    const std::lock_guard guard(mutex);
    messages.emplace_back(type,
                          payload == nullptr ? "(none)" : std::string(payload->begin(), payload->end()));
    return true;
  }
  std::vector<std::pair<std::int32_t, std::string>> all() {
    const std::lock_guard guard(mutex);
    return messages;
  }
  bool waitFor(std::size_t count) {
    return eventually([&] { return all().size() >= count; });
  }
  std::mutex mutex;
  std::vector<std::pair<std::int32_t, std::string>> messages;
};

using Messages = std::vector<std::pair<std::int32_t, std::string>>;

class KeldSocketTest : public ::testing::Test {
 protected:
  KeldSocketTest() { gLoggingEnabled = true; }
  ~KeldSocketTest() override {
    socket_->close();
    // The receive thread leaves by itself; a test must not end under its feet.
    EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
  }
  RawConnection connect() {
    socket_->setSocketDelegate(delegate_);
    socket_->setDataDelegate(data_);
    EXPECT_TRUE(socket_->connectToPath(peer_.path()));
    return peer_.accept();
  }

  LogCapture log_;
  RawPeer peer_;
  std::shared_ptr<KeldaneSocket> socket_ = KeldaneSocket::create();
  std::shared_ptr<SocketDelegate> delegate_ = std::make_shared<SocketDelegate>();
  std::shared_ptr<DataDelegate> data_ = std::make_shared<DataDelegate>();
};

TEST_F(KeldSocketTest, SendsMarkerIntegersAndDataAsTheyAre) {
  RawConnection peer = connect();
  EXPECT_TRUE(socket_->sendString(kFrameMarker.data()));
  EXPECT_TRUE(socket_->sendInt(0x01020304));
  EXPECT_TRUE(socket_->sendInt(-1));
  EXPECT_TRUE(socket_->sendData(Bytes{'a', 'b'}));
  EXPECT_EQ(peer.read(46), std::string(testing::kMarkerText) + "\x04\x03\x02\x01\xFF\xFF\xFF\xFF" + "ab");
}

TEST_F(KeldSocketTest, TellsItsDelegateThatItIsConnected) {
  RawConnection peer = connect();
  EXPECT_TRUE(eventually([&] { return delegate_->connected == 1; }));
}

TEST_F(KeldSocketTest, DeliversMessagesAsTheyCome) {
  RawConnection peer = connect();
  peer.writeFrame(1, "request");
  peer.writeFrame(2, "");
  peer.writeFrame(77, "unknown types are delivered too");
  ASSERT_TRUE(data_->waitFor(3));
  EXPECT_EQ(data_->all(), (Messages{{1, "request"}, {2, "(none)"}, {77, "unknown types are delivered too"}}));
}

TEST_F(KeldSocketTest, DeliversMessagesThatComeByteByByteAndJoined) {
  RawConnection peer = connect();
  for (const char byte : RawConnection::frame(1, "slow")) {
    peer.write(std::string(1, byte));
  }
  peer.write(RawConnection::frame(2, "one") + RawConnection::frame(2, "two"));
  ASSERT_TRUE(data_->waitFor(3));
  EXPECT_EQ(data_->all(), (Messages{{1, "slow"}, {2, "one"}, {2, "two"}}));
}

TEST_F(KeldSocketTest, DeliversALargeMessage) {
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

TEST_F(KeldSocketTest, GarbageIsPassedOverInWholeSteps) {
  RawConnection peer = connect();
  peer.write(std::string(72, '?') + RawConnection::frame(1, "after two steps"));
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "after two steps"}}));
  EXPECT_EQ(log_.count("KeldaneSocket Expecting a UUID, got something else..."), 2U);
}

TEST_F(KeldSocketTest, GarbageThatIsShorterCostsTheMessageBehindIt) {
  RawConnection peer = connect();
  // 10 bytes of garbage push the frame out of step; 62 more bring the next one into it again.
  peer.write(std::string(10, '?') + RawConnection::frame(1, std::string(54, 'l')));
  peer.writeFrame(1, "heard again");
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all(), (Messages{{1, "heard again"}}));
}

TEST_F(KeldSocketTest, ALengthThatNeverArrivesTakesNoMemory) {
  RawConnection peer = connect();
  peer.write(std::string(testing::kMarkerText) + std::string("\2\0\0\0\xFF\xFF\xFF\xFF", 8) + "few");
  peer.close();
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_EQ(data_->all()[0], (std::pair<std::int32_t, std::string>{0, "(none)"}));
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss, 2'000'000) << "kilobytes";
}

TEST_F(KeldSocketTest, TheEndOfTheStreamIsReportedAfterASecondAndAgainUntilClosed) {
  RawConnection peer = connect();
  const auto start = std::chrono::steady_clock::now();
  peer.close();
  ASSERT_TRUE(data_->waitFor(1));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  EXPECT_EQ(data_->all()[0], (std::pair<std::int32_t, std::string>{0, "(none)"}));
  ASSERT_TRUE(data_->waitFor(2));
  EXPECT_TRUE(eventually([&] { return delegate_->failed >= 2; }));
  EXPECT_TRUE(log_.has("KeldaneSocket read from socket failed"));
  socket_->close();
  const int failed = delegate_->failed;
  std::this_thread::sleep_for(std::chrono::milliseconds(1300));
  EXPECT_EQ(delegate_->failed, failed) << "nothing is reported once closed";
}

TEST_F(KeldSocketTest, CanBeClosedFromWithinItsDelegate) {
  delegate_->closesOnFailure = true;
  RawConnection peer = connect();
  peer.close();
  EXPECT_TRUE(eventually([&] { return socket_->isZombie(); }));
  EXPECT_EQ(delegate_->failed, 1);
}

TEST_F(KeldSocketTest, TellsTheMainThreadWhenAsked) {
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

TEST_F(KeldSocketTest, ClosingTakesBackWhatIsStillQueued) {
  socket_->setCallDelegateOnMainThread(true);
  RawConnection peer = connect();
  EXPECT_TRUE(eventually([] { return RunLoop::main().load().work == 1; }));
  socket_->close();
  EXPECT_EQ(RunLoop::main().load(), RunLoop::Load{});
}

TEST_F(KeldSocketTest, AFailedWriteIsToldOnTheWritersThread) {
  socket_->setCallDelegateOnMainThread(true);
  RawConnection peer = connect();
  peer.close();
  bool sent = true;
  for (int i = 0; i < 100 && sent; ++i) {
    sent = socket_->sendData(Bytes(100'000, 0));
  }
  EXPECT_FALSE(sent);
  EXPECT_EQ(delegate_->failed, 1) << "at once, whatever was asked for the receive side";
  EXPECT_TRUE(log_.has("KeldaneSocket write to socket failed"));
}

TEST_F(KeldSocketTest, AClosedSocketSendsNothingSilently) {
  RawConnection peer = connect();
  socket_->close();
  EXPECT_FALSE(socket_->sendData(Bytes{1}));
  EXPECT_FALSE(socket_->sendString("x"));
  EXPECT_FALSE(socket_->sendInt(1));
  EXPECT_EQ(delegate_->failed, 0);
  EXPECT_TRUE(peer.isAtEnd());
}

TEST_F(KeldSocketTest, MessagesWaitUntilThereIsADataDelegate) {
  EXPECT_TRUE(socket_->connectToPath(peer_.path()));
  RawConnection peer = peer_.accept();
  peer.writeFrame(1, "early");
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  socket_->setDataDelegate(data_);
  ASSERT_TRUE(data_->waitFor(1));
}

TEST_F(KeldSocketTest, ClosingReleasesAThreadThatWaitsForADataDelegate) {
  EXPECT_TRUE(socket_->connectToPath(peer_.path()));
  RawConnection peer = peer_.accept();
  peer.writeFrame(1, "early");
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto start = std::chrono::steady_clock::now();
  socket_->close();
  EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(KeldSocketTest, ANewSocketDelegateTellsTheOldOneThatTheLinkFailed) {
  socket_->setSocketDelegate(delegate_);
  socket_->setSocketDelegate(delegate_);
  EXPECT_EQ(delegate_->failed, 0) << "the same one again is nothing new";
  socket_->setSocketDelegate(std::make_shared<SocketDelegate>());
  EXPECT_EQ(delegate_->failed, 1);
}

TEST_F(KeldSocketTest, NoDelegateIsAnAssertion) {
  try {
    socket_->setSocketDelegate(nullptr);
    FAIL();
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.description(), "Setting delegate to NULL");
    EXPECT_EQ(failure.file(), "Common/KeldSocket");
    EXPECT_EQ(failure.line(), 559);
  }
  try {
    socket_->setDataDelegate(nullptr);
    FAIL();
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.description(), "Setting result delegate to NULL");
    EXPECT_EQ(failure.line(), 575);
  }
}

TEST_F(KeldSocketTest, AFailedConnectIsLoggedAndCanBeTriedAgain) {
  const TemporaryFolder folder;
  const auto before = testing::countOf("fd");
  EXPECT_FALSE(socket_->connectToPath(folder / "none"));
  EXPECT_TRUE(log_.has("connect failed: No such file or directory"));
  EXPECT_FALSE(socket_->connectToPath(std::nullopt));
  EXPECT_FALSE(socket_->connectToPath(""));
  EXPECT_EQ(log_.count("connect failed: No such file or directory"), 3U);
  EXPECT_EQ(testing::countOf("fd"), before + 1) << "one descriptor, kept for the next try";
  socket_->setDataDelegate(data_);
  EXPECT_TRUE(socket_->connectToPath(peer_.path()));
}

TEST_F(KeldSocketTest, OnlyTheFirst103BytesOfAPathCount) {
  const TemporaryFolder folder;
  std::string path = folder / "";
  path += std::string(103 - path.size(), 'p');
  ASSERT_EQ(path.size(), 103U);
  const auto listener = KeldaneSocket::create();
  ASSERT_TRUE(listener->listenAtPath(path));
  EXPECT_TRUE(socket_->connectToPath(path + "and what lies beyond"));
  listener->close();
}

TEST_F(KeldSocketTest, ReadsFailAtTheEndAndStopWhenClosed) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const auto reader = KeldaneSocket::create();
  reader->setSocket(ends[0]);
  char buffer[8] = {};
  ASSERT_EQ(write(ends[1], "abcd", 4), 4);
  EXPECT_EQ(reader->readBytes(4, buffer), 4);
  ASSERT_EQ(write(ends[1], "ef", 2), 2);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  EXPECT_EQ(reader->readBytes(4, buffer), 2) << "a read that would block ends with what there is";
  close(ends[1]);
  EXPECT_EQ(reader->readBytes(4, buffer), -1);
  reader->close();
  EXPECT_EQ(reader->readBytes(4, buffer), 0);
}

TEST_F(KeldSocketTest, SendsFromSeveralThreadsAreNotMixed) {
  RawConnection peer = connect();
  std::vector<std::thread> threads;
  for (const char mark : {'a', 'b', 'c'}) {
    threads.emplace_back([this, mark] {
      for (int i = 0; i < 50; ++i) {
        socket_->sendData(Bytes(1000, static_cast<std::uint8_t>(mark)));
      }
    });
  }
  for (int i = 0; i < 150; ++i) {
    const std::string block = peer.read(1000);
    EXPECT_EQ(block, std::string(1000, block[0]));
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(KeldSocketTest, ManyConnectionsLeaveNothingBehind) {
  const auto cycle = [&] {
    const auto socket = KeldaneSocket::create();
    socket->setSocketDelegate(delegate_);
    socket->setDataDelegate(data_);
    EXPECT_TRUE(socket->connectToPath(peer_.path()));
    RawConnection peer = peer_.accept();
    socket->close();
    return eventually([&] { return socket.use_count() == 1; });
  };
  cycle();
  EXPECT_TRUE(eventually([] { return testing::countOf("task") == 1; }));
  const auto descriptors = testing::countOf("fd");
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(cycle());
  }
  EXPECT_EQ(testing::countOf("fd"), descriptors);
  EXPECT_TRUE(eventually([] { return testing::countOf("task") == 1; }));
  EXPECT_EQ(delegate_.use_count(), 1);
}

class KeldSocketListenTest : public KeldSocketTest {
 protected:
  std::shared_ptr<KeldaneSocket> listen() {
    const auto listener = KeldaneSocket::create();
    listener->setSocketDelegate(delegate_);
    EXPECT_TRUE(listener->listenAtPath(path_));
    return listener;
  }
  TemporaryFolder folder_;
  std::string path_ = folder_ / "listener.sock";
};

TEST_F(KeldSocketListenTest, ReplacesWhatIsAtItsPathAndIsOpenToAll) {
  folder_.write("listener.sock", "in the way");
  const auto listener = listen();
  struct stat status {};
  ASSERT_EQ(lstat(path_.c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0777U);
  listener->close();
}

TEST_F(KeldSocketListenTest, FailsWhereItCannotListen) {
  EXPECT_FALSE(KeldaneSocket::create()->listenAtPath(folder_ / "none/x"));
  EXPECT_FALSE(KeldaneSocket::create()->listenAtPath(""));
}

TEST_F(KeldSocketListenTest, MakesAChildForEachPeer) {
  const auto listener = listen();
  socket_->setDataDelegate(data_);
  ASSERT_TRUE(socket_->connectToPath(path_));
  ASSERT_TRUE(eventually([&] { return delegate_->childCount() == 1; }));
  const auto child = delegate_->children[0];
  EXPECT_EQ(child->peerCredentials()->uid, getuid());
  child->setDataDelegate(std::make_shared<DataDelegate>());
  socket_->sendString("x");
  child->sendData(Bytes(36, 'g'));
  listener->close();
  EXPECT_TRUE(child->isZombie()) << "closing the listener closes its children";
  EXPECT_FALSE(std::filesystem::exists(path_));
  delegate_->children.clear();
}

TEST_F(KeldSocketListenTest, DropsDeadChildrenWhenTheNextPeerComes) {
  const auto listener = listen();
  ASSERT_TRUE(socket_->connectToPath(path_));
  ASSERT_TRUE(eventually([&] { return delegate_->childCount() == 1; }));
  std::weak_ptr<KeldaneSocket> first = delegate_->children[0];
  first.lock()->close();
  delegate_->children.clear();
  EXPECT_FALSE(first.expired());
  const auto second = KeldaneSocket::create();
  ASSERT_TRUE(second->connectToPath(path_));
  EXPECT_TRUE(eventually([&] { return first.expired(); }));
  second->close();
  listener->close();
  delegate_->children.clear();
}

TEST_F(KeldSocketListenTest, AListenerThatNobodyCalledKeepsItsFile) {
  std::weak_ptr<KeldaneSocket> weak;
  {
    const auto listener = listen();
    weak = listener;
    listener->close();
    EXPECT_TRUE(listener->isZombie());
  }
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_TRUE(eventually([&] { return weak.expired(); })) << "its thread leaves all the same";
}

TEST_F(KeldSocketListenTest, ForgetsAChildWhenToldTo) {
  const auto listener = listen();
  ASSERT_TRUE(socket_->connectToPath(path_));
  ASSERT_TRUE(eventually([&] { return delegate_->childCount() == 1; }));
  const auto child = delegate_->children[0];
  listener->removeChild(child);
  listener->close();
  EXPECT_FALSE(child->isZombie());
  child->close();
  delegate_->children.clear();
}

}  // namespace
}  // namespace keldane
