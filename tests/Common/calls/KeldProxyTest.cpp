#include "tests/Common/calls/KeldProxyFixture.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::Frame;
using testing::KeldProxyTest;
using testing::RawConnection;

TEST_F(KeldProxyTest, ARequestIsAnArrayOfFourElementsAndTwoForEachArgument) {
  proxy_->setFileTypeToggle(".txt", 6U);
  const Frame frame = connection_.readFrame();
  EXPECT_EQ(frame.marker, testing::kMarkerText);
  EXPECT_EQ(frame.type, 1);
  EXPECT_EQ(frame.payload.substr(0, 8), "bplist00");
  EXPECT_TRUE(frame.value().identical(
      PropertyList::array({0, "v", "setFileTypeToggle:toggle:", 2, "@", ".txt", "I", 6})))
      << frame.value().description();
}

// On a socket that keeps message boundaries each send arrives by itself.
TEST_F(KeldProxyTest, AMessageIsWrittenInFourPieces) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor peer(ends[1]);
  const auto socket = KeldaneSocket::create();
  socket->setSocket(ends[0]);
  const auto proxy = KeldaneProxy::create();
  proxy->setSocket(socket);
  proxy->setProtocol(&KeldaneDaemonProtocol);
  proxy->setDelegate(target_);
  const auto piece = [&] {
    char buffer[1000];
    const ssize_t got = recv(peer.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
    return std::string(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  };
  proxy->terminate();
  EXPECT_EQ(piece(), testing::kMarkerText);
  EXPECT_EQ(piece(), std::string("\1\0\0\0", 4));
  const std::string length = piece();
  ASSERT_EQ(length.size(), 4U);
  EXPECT_EQ(piece().size(), static_cast<std::size_t>(length[0]));
  EXPECT_EQ(piece(), "");

  const Bytes request = payload(KeldProxyTest::request("nothing", {}));
  proxy->processData(&request, 1);
  EXPECT_EQ(piece(), testing::kMarkerText);
  EXPECT_EQ(piece(), std::string("\2\0\0\0", 4));
  EXPECT_EQ(piece(), std::string(4, '\0'));
  EXPECT_EQ(piece(), "") << "no payload, no fourth piece";
  proxy->close();
  socket->close();
}

TEST_F(KeldProxyTest, ABooleanArgumentGoesAsANumber) {
  std::thread caller([&] { proxy_->dictionaryForPath("/x", true); });
  const PropertyList request = connection_.readFrame().value();
  EXPECT_TRUE(request.identical(
      PropertyList::array({8, "@", "dictionaryForPath:withDirSizes:", 2, "@", "/x", "c", 1})));
  connection_.writeFrame(2, "");
  caller.join();
}

TEST_F(KeldProxyTest, AOneWayCallReturnsAtOnce) {
  proxy_->addFileToBackup("/x");
  proxy_->terminate();
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "addFileToBackup:");
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "terminate");
}

TEST_F(KeldProxyTest, AnswersAreDecodedByTheReturnType) {
  std::thread peer = answerNext(PropertyList::dictionary({{"state", "Backed up"}}));
  EXPECT_EQ(proxy_->dictionaryForPath("/x")["state"].string(), "Backed up");
  peer.join();
  peer = answerNext(7);
  EXPECT_EQ(proxy_->pausedMinutes(), 7U);
  peer.join();
  peer = answerNext(true);
  EXPECT_EQ(proxy_->automaticMode(), 1);
  peer.join();
  peer = answerNext(-5);
  EXPECT_EQ(proxy_->longForState(1U), -5);
  peer.join();
  peer = answerNext(UINT64_MAX);
  EXPECT_EQ(proxy_->longlongForState(1U), UINT64_MAX);
  peer.join();
}

TEST_F(KeldProxyTest, AnswersWithTheSameKeysShareThem) {
  const auto ask = [&](const char* state) {
    std::thread peer = answerNext(PropertyList::dictionary({{"name", "x"}, {"state", state}}));
    const PropertyList answer = proxy_->dictionaryForPath("/x");
    peer.join();
    EXPECT_EQ(answer["state"].string(), state);
    return answer;
  };
  const PropertyList first = ask("Backed up");
  const PropertyList second = ask("Changed");
  EXPECT_EQ(second.entry(0).first.string().data(), first.entry(0).first.string().data());
}

TEST_F(KeldProxyTest, AnAnswerOfTheWrongKindReadsAsZero) {
  std::thread peer = answerNext(PropertyList::array({1}));
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  peer.join();
}

TEST_F(KeldProxyTest, AnEmptyAnswerIsNone) {
  std::thread peer([&] {
    connection_.readFrame();
    connection_.writeFrame(2, "");
    connection_.readFrame();
    connection_.writeFrame(2, "");
  });
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  EXPECT_TRUE(proxy_->serverURL().isAbsent());
  peer.join();
}

TEST_F(KeldProxyTest, AnUnreadableAnswerIsLoggedAndNone) {
  std::thread peer([&] {
    connection_.readFrame();
    connection_.writeFrame(2, "bplist00 garbage");
  });
  EXPECT_TRUE(proxy_->serverURL().isAbsent());
  peer.join();
  EXPECT_TRUE(log_.hasPart("Failed to unserialize response: "));
}

TEST_F(KeldProxyTest, ALinkThatDropsWakesTheCallerWithNothingAfterASecond) {
  const auto start = std::chrono::steady_clock::now();
  std::thread peer([&] {
    connection_.readFrame();
    connection_.close();
  });
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  EXPECT_TRUE(log_.has("KeldProxy detected error while waiting on result"));
  peer.join();
}

TEST_F(KeldProxyTest, ACallThatWasNotAnsweredIsToldFromOneThatWasAnsweredWithNothing) {
  socket_->setSocketDelegate(std::make_shared<KeldSocketDelegate>());
  socket_->setCallDelegateOnMainThread(true);  // nobody runs the main thread's loop here
  std::thread answering([&] {
    connection_.readFrame();
    connection_.writeFrame(2, "");
  });
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  EXPECT_FALSE(proxy_->isLinkAtEnd());
  answering.join();

  std::thread leaving([&] {
    connection_.readFrame();
    connection_.close();
  });
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  EXPECT_TRUE(proxy_->isLinkAtEnd());
  leaving.join();
}

TEST_F(KeldProxyTest, ACallAfterTheLinkWasTakenDownDoesNotWait) {
  proxy_->close();
  socket_->close();
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  EXPECT_TRUE(proxy_->serverURL().isAbsent());
}

TEST_F(KeldProxyTest, ACallOnALinkThatNeverWasUpDoesNotWait) {
  const auto proxy = KeldaneProxy::create();
  proxy->setProtocol(&KeldaneDaemonProtocol);
  EXPECT_EQ(proxy->pausedMinutes(), 0U) << "no socket at all";
  proxy->setSocket(KeldaneSocket::create());
  EXPECT_EQ(proxy->pausedMinutes(), 0U) << "a socket that is not connected";
  EXPECT_TRUE(proxy->serverURL().isAbsent());
  proxy->close();
}

TEST_F(KeldProxyTest, AFailedWriteThatClosesTheLinkDoesNotLeaveTheCallerWaiting) {
  struct Closer : KeldSocketDelegate {
    explicit Closer(std::shared_ptr<KeldaneProxy> proxy) : proxy_(std::move(proxy)) {}
    void socketFailed(const std::shared_ptr<KeldaneSocket>& socket) override {
      if (proxy_) {
        std::exchange(proxy_, nullptr)->close();
        socket->close();
      }
    }
    std::shared_ptr<KeldaneProxy> proxy_;
  };
  socket_->setSocketDelegate(std::make_shared<Closer>(proxy_));
  connection_.close();
  // The text is so large that no buffer can take all of it.
  EXPECT_TRUE(proxy_->dictionaryForPath(std::string(5'000'000, 'x')).isAbsent());
}

TEST_F(KeldProxyTest, AnUnknownSelectorRaisesAtTheCallerAndSendsNothing) {
  EXPECT_THROW(proxy_->call("setBackupControl:turnOff:", {RawValue::of<'I'>(5), RawValue::of<'I'>(0)}),
               InvalidArgument);
  EXPECT_THROW(proxy_->call("intValueForProfileKey:", {RawValue::of<'@'>("k")}), InvalidArgument);
  EXPECT_THROW(proxy_->call("setPausedMinutes:", {}), InvalidArgument)
      << "arguments must be as many as the table says";
  proxy_->terminate();
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "terminate")
      << "the first thing that was sent; no lock was left";
}

TEST_F(KeldProxyTest, AProxyWithoutAProtocolKnowsNoMethod) {
  proxy_->setProtocol(nullptr);
  EXPECT_THROW(proxy_->terminate(), InvalidArgument);
}

TEST_F(KeldProxyTest, CallsByNameAreConvertedToTheTablesCodes) {
  proxy_->call("setPausedMinutes:", {RawValue::of<'@'>(PropertyList(15))});
  EXPECT_TRUE(connection_.readFrame().value().identical(
      PropertyList::array({0, "v", "setPausedMinutes:", 1, "I", 15})));
}

TEST_F(KeldProxyTest, ARequestIsThatOfTheTableThatIsBoundNow) {
  static constexpr MethodSignature kMethods[] = {{"setPausedMinutes:", 'v', "@"}};
  static constexpr Protocol kOther = {"Other", kMethods};
  proxy_->setPausedMinutes(15U);
  EXPECT_EQ(connection_.readFrame().value()[4].string(), "I");
  proxy_->setProtocol(&kOther);
  proxy_->call("setPausedMinutes:", {RawValue::of<'@'>(PropertyList("some"))});
  EXPECT_TRUE(connection_.readFrame().value().identical(
      PropertyList::array({0, "v", "setPausedMinutes:", 1, "@", "some"})));
}

TEST_F(KeldProxyTest, ARequestThatCannotBeWrittenIsNotSent) {
  EXPECT_TRUE(proxy_->dictionaryForPath(PropertyList()).isAbsent());
  EXPECT_TRUE(log_.has("serialization failed"));
  proxy_->terminate();
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "terminate");
}

TEST_F(KeldProxyTest, ARequestWithContainersIsSentWhenAllThatTheyHoldIsThere) {
  static constexpr MethodSignature kMethods[] = {{"tell:", 'v', "@"}};
  static constexpr Protocol kTelling = {"Telling", kMethods};
  proxy_->setProtocol(&kTelling);
  proxy_->call("tell:", {RawValue::of<'@'>(PropertyList::array({1, PropertyList()}))});
  EXPECT_TRUE(log_.has("serialization failed"));
  const PropertyList whole = PropertyList::array({1, PropertyList::dictionary({{"a", "b"}})});
  proxy_->call("tell:", {RawValue::of<'@'>(whole)});
  EXPECT_TRUE(connection_.readFrame().value()[5].identical(whole)) << "the first that was sent";
}

TEST_F(KeldProxyTest, CallsOfTwoThreadsAreServedOneAfterTheOther) {
  constexpr int kCalls = 50;
  std::vector<std::thread> callers;
  callers.reserve(2);
  for (int t = 0; t < 2; ++t) {
    callers.emplace_back([&, t] {
      for (int i = 0; i < kCalls; ++i) {
        EXPECT_EQ(proxy_->getRestoreJobStatus(static_cast<std::uint32_t>(1000 * t + i)),
                  static_cast<std::uint32_t>(1000 * t + i));
      }
    });
  }
  for (int i = 0; i < 2 * kCalls; ++i) {
    const Frame frame = connection_.readFrame();
    ASSERT_EQ(frame.marker, testing::kMarkerText);
    EXPECT_FALSE(connection_.isReadable(0)) << "the next call waits for this one";
    connection_.answer(frame.value()[5]);
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
}

TEST_F(KeldProxyTest, AStrayAnswerIsTakenByTheNextCall) {
  std::thread peer([&] {
    connection_.readFrame();
    connection_.answer(1);
    connection_.answer(2);  // an answer that nobody asked for
    connection_.readFrame();
    connection_.answer(3);
  });
  EXPECT_EQ(proxy_->pausedMinutes(), 1U);
  EXPECT_EQ(proxy_->pausedMinutes(), 2U) << "answers are matched by their order alone";
  peer.join();
}

TEST_F(KeldProxyTest, AnAnswerThatNoCallCanTakeIsDropped) {
  static constexpr MethodSignature kOneWay[] = {{"stateChanged:", 'v', "@"}};
  static constexpr Protocol kProtocol = {"OneWay", kOneWay};
  proxy_->setProtocol(&kProtocol);
  connection_.answer(1);
  connection_.answer(2);
  sendRequest(request("tell:", {"@", "still here"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{"still here"}; }));
}

TEST_F(KeldProxyTest, AFailureSignalBetweenCallsIsTakenByTheNextCall) {
  std::thread peer = answerNext(1);
  EXPECT_EQ(proxy_->pausedMinutes(), 1U);
  peer.join();
  proxy_->processData(nullptr, 0);
  peer = answerNext(2);
  EXPECT_EQ(proxy_->pausedMinutes(), 0U) << "the signal readied a result of none";
  peer.join();
  peer = answerNext(3);
  EXPECT_EQ(proxy_->pausedMinutes(), 2U) << "and the answers are one late from then on";
  peer.join();
}

TEST_F(KeldProxyTest, AFailureSignalBeforeTheFirstCallIsForgotten) {
  proxy_->processData(nullptr, 0);
  std::thread peer = answerNext(1);
  EXPECT_EQ(proxy_->pausedMinutes(), 1U);
  peer.join();
}

TEST_F(KeldProxyTest, AFailureSignalAfterCloseReadiesNothing) {
  std::thread peer = answerNext(1);
  EXPECT_EQ(proxy_->pausedMinutes(), 1U);
  peer.join();
  proxy_->close();
  proxy_->processData(nullptr, 0);
  const auto next = KeldaneSocket::create();
  proxy_->setSocket(next);
  ASSERT_TRUE(next->connectToPath(peer_.path()));
  connection_ = peer_.accept();
  peer = answerNext(2);
  EXPECT_EQ(proxy_->pausedMinutes(), 2U) << "nothing was there before the answer";
  peer.join();
  proxy_->close();
  next->close();
  EXPECT_TRUE(eventually([&] { return next.use_count() == 1; }));
}

TEST_F(KeldProxyTest, CloseDoesNotReleaseACallerThatIsWaiting) {
  std::atomic<bool> returned = false;
  std::atomic<pid_t> thread = 0;
  std::thread caller([&] {
    thread = gettid();
    proxy_->pausedMinutes();
    returned = true;
  });
  connection_.readFrame();
  EXPECT_TRUE(eventually([&] { return testing::isAsleep(thread); })) << "it has sent and waits";
  proxy_->close();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(returned);
  const Bytes answer = payload(5);
  proxy_->processData(&answer, 2);
  caller.join();
}

TEST_F(KeldProxyTest, ClosingReleasesAReceiveThreadThatCannotHandOverItsResult) {
  connection_.answer(1);
  connection_.answer(2);  // waits for somebody to take the first
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  proxy_->close();
  socket_->close();
  EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
}

TEST_F(KeldProxyTest, AnUnknownFrameTypeIsAFailureSignal) {
  std::thread peer([&] {
    connection_.readFrame();
    connection_.writeFrame(77, "whatever");
  });
  EXPECT_EQ(proxy_->pausedMinutes(), 0U);
  EXPECT_TRUE(log_.has("KeldProxy detected error while waiting on result"));
  peer.join();
}

TEST_F(KeldProxyTest, TheProxyAndItsSocketGoWhicheverIsClosedFirst) {
  for (const bool proxyFirst : {true, false}) {
    auto socket = KeldaneSocket::create();
    auto proxy = KeldaneProxy::create();
    proxy->setSocket(socket);
    ASSERT_TRUE(socket->connectToPath(peer_.path()));
    RawConnection connection = peer_.accept();
    const std::weak_ptr<KeldaneSocket> weakSocket = socket;
    const std::weak_ptr<KeldaneProxy> weakProxy = proxy;
    if (proxyFirst) {
      proxy->close();
      socket->close();
    } else {
      socket->close();
      proxy->close();
    }
    socket.reset();
    proxy.reset();
    EXPECT_TRUE(eventually([&] { return weakSocket.expired() && weakProxy.expired(); }));
  }
  EXPECT_TRUE(eventually([] { return RunLoop::main().load().ports == 1; })) << "that of the test's own proxy";
}

TEST_F(KeldProxyTest, SettingASocketReleasesAReceiveThreadThatCannotHandOverItsResult) {
  connection_.answer(1);
  connection_.answer(2);  // waits for somebody to take the first
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto next = KeldaneSocket::create();
  proxy_->setSocket(next);
  EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
}

TEST_F(KeldProxyTest, ACallThatMustNotWaitIsSentOnlyIfThereIsALinkThatNoCallUses) {
  const Arguments arguments = {RawValue::of<'@'>("/x")};
  EXPECT_TRUE(proxy_->callWithoutWaiting("addFileToBackup:", arguments));
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "addFileToBackup:");
  std::thread caller([&] { EXPECT_EQ(proxy_->pausedMinutes(), 5U); });
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "pausedMinutes");
  EXPECT_FALSE(proxy_->callWithoutWaiting("addFileToBackup:", arguments)) << "another call waits";
  connection_.answer(5);
  caller.join();
  EXPECT_TRUE(proxy_->callWithoutWaiting("addFileToBackup:", arguments));
  EXPECT_EQ(connection_.readFrame().value()[2].string(), "addFileToBackup:") << "and none before it";
  proxy_->close();
  EXPECT_FALSE(proxy_->callWithoutWaiting("addFileToBackup:", arguments)) << "there is no link";
}

TEST_F(KeldProxyTest, AfterACallWithoutALinkAFailureReadiesNothing) {
  const auto proxy = KeldaneProxy::create();
  proxy->setProtocol(&KeldaneDaemonProtocol);
  EXPECT_EQ(proxy->pausedMinutes(), 0U);
  proxy->processData(nullptr, kLinkFailed);
  const auto socket = KeldaneSocket::create();
  proxy->setSocket(socket);
  ASSERT_TRUE(socket->connectToPath(peer_.path()));
  RawConnection connection = peer_.accept();
  std::thread peer([&] {
    connection.readFrame();
    connection.answer(5);
  });
  EXPECT_EQ(proxy->pausedMinutes(), 5U) << "the call gets its own answer";
  peer.join();
  proxy->close();
  socket->close();
}

TEST_F(KeldProxyTest, SettingASocketClosesTheOneBefore) {
  const auto next = KeldaneSocket::create();
  proxy_->setSocket(next);
  EXPECT_TRUE(socket_->isZombie());
  EXPECT_TRUE(connection_.isAtEnd());
}
}  // namespace
}  // namespace keldane
