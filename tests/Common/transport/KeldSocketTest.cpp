#include "Common/transport/KeldSocket.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <array>

#include "platform/objects/Exceptions.h"
#include "platform/runloop/RunLoop.h"
#include "tests/Common/transport/KeldSocketFixture.h"

namespace keldane {
namespace {

using testing::DataDelegate;
using testing::eventually;
using testing::KeldSocketTest;
using testing::RawConnection;
using testing::SocketDelegate;
using testing::TemporaryFolder;

TEST_F(KeldSocketTest, ANewOneHasNoDescriptor) {
  socket_->setSocketDelegate(delegate_);
  char byte = 0;
  EXPECT_FALSE(socket_->sendData(Bytes{1}));
  EXPECT_FALSE(socket_->sendString("x"));
  EXPECT_FALSE(socket_->sendInt(1));
  EXPECT_EQ(socket_->readBytes(1, &byte), 0);
  EXPECT_EQ(socket_->peerCredentials(), std::nullopt);
  EXPECT_FALSE(socket_->isZombie());
  EXPECT_FALSE(socket_->isReceiving());
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(delegate_->failed, 0) << "these three look first, and say nothing";
  EXPECT_FALSE(socket_->sendBytes("x", 1));
  EXPECT_EQ(delegate_->failed, 1) << "this one tries";
  EXPECT_TRUE(log_.has("KeldaneSocket write to socket failed"));
}

TEST_F(KeldSocketTest, SendsMarkerIntegersAndDataAsTheyAre) {
  RawConnection peer = connect();
  EXPECT_TRUE(socket_->sendString(kFrameMarker.data()));
  EXPECT_TRUE(socket_->sendInt(0x01020304));
  EXPECT_TRUE(socket_->sendInt(-1));
  EXPECT_TRUE(socket_->sendData(Bytes{'a', 'b'}));
  EXPECT_EQ(peer.read(46), std::string(testing::kMarkerText) + "\x04\x03\x02\x01\xFF\xFF\xFF\xFF" + "ab");
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

TEST_F(KeldSocketTest, AClosedSocketKeepsNoDescriptor) {
  const auto before = testing::countOf("fd");
  {
    RawConnection peer = connect();
    socket_->setDataDelegate(data_);
    EXPECT_TRUE(socket_->sendString("x"));
    EXPECT_EQ(peer.read(1), "x");
    peer.writeFrame(kResponseFrame, "an answer");
    EXPECT_TRUE(eventually([&] { return !data_->all().empty(); }));
    socket_->close();
  }
  EXPECT_TRUE(eventually([&] { return testing::countOf("fd") == before; }));
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

TEST_F(KeldSocketTest, AProcessWithoutFreeDescriptorsCannotConnectButClose) {
  socket_->setCallDelegateOnMainThread(true);
  socket_->setSocketDelegate(delegate_);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_FALSE(socket_->connectToPath(peer_.path()));
  EXPECT_FALSE(socket_->listenAtPath(path_));
  EXPECT_NO_THROW(socket_->close());
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(log_.lines().empty());
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

TEST_F(KeldSocketTest, TakesNoMoreFromADescriptorThatItWasGivenThanWasAskedFor) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor other(fcntl(ends[0], F_DUPFD_CLOEXEC, 0));
  const auto reader = KeldaneSocket::create();
  reader->setSocket(ends[0]);
  ASSERT_EQ(write(ends[1], "abcdef", 6), 6);
  char buffer[8] = {};
  EXPECT_EQ(reader->readBytes(2, buffer), 2);
  EXPECT_EQ(read(other.get(), buffer, sizeof(buffer)), 4);
  EXPECT_STREQ(buffer, "cdef");
  close(ends[1]);
}

TEST_F(KeldSocketTest, PiecesOfEverySizeComeInOrderUntilItIsClosed) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const auto reader = KeldaneSocket::create();
  reader->setSocket(ends[0]);
  std::string sent;
  for (int i = 0; i < 20000; ++i) {
    sent += static_cast<char>(i * i % 251);
  }
  ASSERT_EQ(write(ends[1], sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
  std::string received;
  for (const std::uint32_t count : {1U, 35U, 4000U, 96U, 5000U, 4096U, 4097U, 600U}) {
    std::string part(count, '\0');
    ASSERT_EQ(reader->readBytes(count, part.data()), static_cast<std::int32_t>(count));
    received += part;
  }
  EXPECT_EQ(received, sent.substr(0, received.size()));
  reader->close();
  char byte = 0;
  EXPECT_EQ(reader->readBytes(1, &byte), 0);
  close(ends[1]);
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

TEST_F(KeldSocketTest, ASendThatWaitsForASlowReaderIsReleasedByClosing) {
  RawConnection peer = connect();
  std::atomic<bool> sent = true;
  std::thread sender([&] { sent = socket_->sendData(Bytes(50'000'000, 0)); });
  EXPECT_EQ(peer.read(1000).size(), 1000U) << "it is at it";
  socket_->close();
  sender.join();
  EXPECT_FALSE(sent);
  EXPECT_EQ(delegate_->failed, 0) << "there is no delegate any more";
}

TEST_F(KeldSocketTest, ASendOfMoreThanTheBufferHoldsArrivesWhole) {
  RawConnection peer = connect();
  std::thread sender([&] { EXPECT_TRUE(socket_->sendData(Bytes(5'000'000, 'x'))); });
  EXPECT_EQ(peer.read(5'000'000), std::string(5'000'000, 'x'));
  sender.join();
}

TEST_F(KeldSocketTest, ADelegateThatIsReplacedMayCloseTheSocketThatHeldIt) {
  struct Closer : KeldSocketDelegate {
    explicit Closer(std::string* out) : told(out) {}
    void socketFailed(const std::shared_ptr<KeldaneSocket>& socket) override {
      socket->close();
      *told += text;  // the delegate still lives, though only the socket held it
    }
    std::string text = "a text that is too long to be held within the string object itself";
    std::string* told;
  };
  std::string told;
  socket_->setSocketDelegate(std::make_shared<Closer>(&told));
  socket_->setSocketDelegate(delegate_);
  EXPECT_EQ(told.substr(0, 6), "a text");
}

TEST_F(KeldSocketTest, ClosingGetsThroughWhileADataDelegateIsBeingReplaced) {
  DataDelegate& first = *data_;
  first.onMessage = [&] { EXPECT_TRUE(eventually([&] { return first.closing.load(); })); };
  RawConnection peer = connect();
  peer.writeFrame(1, "keeps the receive thread");
  ASSERT_TRUE(first.waitFor(1));
  const auto second = std::make_shared<DataDelegate>();
  std::thread replacing([&] { socket_->setDataDelegate(second); });
  while (second.use_count() == 1) {  // until the call has begun
    std::this_thread::yield();
  }
  socket_->close();
  replacing.join();
  EXPECT_TRUE(first.closing);
}

TEST_F(KeldSocketTest, CanBeClosedFromSeveralThreadsAtOnce) {
  for (int round = 0; round < 50; ++round) {
    const auto socket = KeldaneSocket::create();
    socket->setSocketDelegate(delegate_);
    socket->setDataDelegate(data_);
    ASSERT_TRUE(socket->connectToPath(peer_.path()));
    RawConnection peer = peer_.accept();
    peer.writeFrame(1, "in between");
    std::array<std::thread, 4> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) {
      threads[i] = std::thread([&, i] {
        if (i == 0) {
          socket->sendString("in between");
        }
        socket->close();
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_TRUE(socket->isZombie());
    ASSERT_TRUE(eventually([&] { return socket.use_count() == 1; }));
  }
}

TEST_F(KeldSocketTest, NobodyElsesDescriptorIsRead) {
  for (int round = 0; round < 200; ++round) {
    const auto socket = KeldaneSocket::create();
    ASSERT_TRUE(socket->connectToPath(peer_.path()));
    RawConnection peer = peer_.accept();
    socket->close();
    // The next descriptors of the process take the numbers that are free now.
    std::array<std::array<int, 2>, 4> pipes{};
    for (auto& ends : pipes) {
      ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
      ASSERT_EQ(write(ends[1], "x", 1), 1);
    }
    ASSERT_TRUE(eventually([&] { return socket.use_count() == 1; }));
    for (auto& ends : pipes) {
      char byte = 0;
      fcntl(ends[0], F_SETFL, O_NONBLOCK);
      EXPECT_EQ(read(ends[0], &byte, 1), 1);
      close(ends[0]);
      close(ends[1]);
    }
  }
}

TEST_F(KeldSocketTest, NoDescriptorIsInheritedByProgramsThatTheHostStarts) {
  const auto isInherited = [](int number) { return (fcntl(number, F_GETFD) & FD_CLOEXEC) == 0; };
  std::array<bool, 256> before{};
  for (int i = 0; i < 256; ++i) {
    before[static_cast<std::size_t>(i)] = fcntl(i, F_GETFD) != -1;
  }
  const auto listener = listen();
  ASSERT_TRUE(socket_->connectToPath(path_));
  ASSERT_TRUE(eventually([&] { return delegate_->childCount() == 1; }));
  int fresh = 0;
  for (int i = 0; i < 256; ++i) {
    if (!before[static_cast<std::size_t>(i)] && fcntl(i, F_GETFD) != -1) {
      ++fresh;
      EXPECT_FALSE(isInherited(i)) << i;
    }
  }
  EXPECT_GE(fresh, 3) << "the listener's, its child's and the client's";
  listener->close();
  delegate_->children.clear();
}

TEST_F(KeldSocketTest, ADelegateThatOwnsItsSocketGoesWhenTheSocketIsClosed) {
  struct Owner : KeldSocketDelegate {
    std::shared_ptr<KeldaneSocket> socket = KeldaneSocket::create();
  };
  auto owner = std::make_shared<Owner>();
  const std::weak_ptr<Owner> weak = owner;
  owner->socket->setSocketDelegate(owner);
  ASSERT_TRUE(owner->socket->connectToPath(peer_.path()));
  owner->socket->close();
  owner.reset();
  EXPECT_TRUE(eventually([&] { return weak.expired(); }));
}

// Connects two hundred times while the main run loop never runs.
TEST_F(KeldSocketTest, ManyConnectionsLeaveNothingBehind) {
  const auto cycle = [&] {
    const auto socket = KeldaneSocket::create();
    socket->setCallDelegateOnMainThread(true);
    socket->setSocketDelegate(delegate_);
    socket->setDataDelegate(data_);
    EXPECT_TRUE(socket->connectToPath(peer_.path()));
    RawConnection peer = peer_.accept();
    socket->close();
    return eventually([&] { return socket.use_count() == 1; });
  };
  cycle();
  RunLoop::main();  // made once, with descriptors of its own, for the first queued call
  const auto threads = testing::settledThreadCount();
  const auto descriptors = testing::countOf("fd");
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(cycle());
  }
  EXPECT_TRUE(eventually([&] { return testing::countOf("task") <= threads; }));
  EXPECT_TRUE(eventually([&] { return testing::countOf("fd") <= descriptors; }));
  EXPECT_TRUE(eventually([&] { return delegate_.use_count() == 1; }));
  EXPECT_TRUE(eventually([] { return RunLoop::main().load() == RunLoop::Load{}; }));
}

// --- Listening ---

TEST_F(KeldSocketTest, ReplacesWhatIsAtItsPathAndIsOpenToAll) {
  folder_.write("listener.sock", "in the way");
  const auto listener = listen();
  struct stat status {};
  ASSERT_EQ(lstat(path_.c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0777U);
  listener->close();
}

TEST_F(KeldSocketTest, FailsSilentlyWhereItCannotListenAndCanTryAgain) {
  const auto before = testing::countOf("fd");
  EXPECT_FALSE(socket_->listenAtPath(folder_ / "none/x"));
  EXPECT_FALSE(socket_->listenAtPath(""));
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(testing::countOf("fd"), before + 1) << "one descriptor, kept for the next try";
  EXPECT_TRUE(socket_->listenAtPath(path_));
  EXPECT_FALSE(socket_->listenAtPath(path_)) << "it listens already";
  EXPECT_FALSE(std::filesystem::exists(path_)) << "what is at the path goes first, whatever comes of it";
}

TEST_F(KeldSocketTest, AListenerThatNobodyCalledKeepsItsFile) {
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

TEST_F(KeldSocketTest, ForgetsAChildWhenToldTo) {
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
