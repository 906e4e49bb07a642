#include "Common/KeldProxy.h"

#include <gtest/gtest.h>

#include <thread>

#include "log/KeldaneLog.h"
#include "platform/objects/Exceptions.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawPeer.h"
#include "tests/support/Wait.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::Frame;
using testing::LogCapture;
using testing::RawConnection;
using testing::RawPeer;

constexpr MethodSignature kTargetMethods[] = {
    {"tell:", 'v', "@"}, {"add:to:", 'i', "ii"},  {"fail", 'I', ""},         {"nothing", '@', ""},
    {"odd", '@', ""},    {"throwOther", 'v', ""}, {"describeBadly", 'v', ""}};

/// What the peer may call here.
struct Target : InvocationTarget {
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    if (selector == "describeBadly") {
      throw 7;
    }
    return Protocol{"", kTargetMethods}.find(selector);
  }
  void invoke(Invocation& invocation) override {
    const std::string_view selector = invocation.signature.selector;
    invocation.arguments.resize(invocation.signature.argumentCodes.size());
    if (selector == "tell:") {
      {
        const std::lock_guard guard(mutex);
        told.push_back(std::string(invocation.arguments[0].as<'@'>().string()));
        thread = std::this_thread::get_id();
      }
      if (const auto next = onTold) {
        next();
      }
    } else if (selector == "add:to:") {
      invocation.result =
          RawValue::of<'i'>(invocation.arguments[0].as<'i'>() + invocation.arguments[1].as<'i'>());
    } else if (selector == "fail") {
      throw InvalidArgument("broken");
    } else if (selector == "odd") {
      invocation.result = RawValue::of<'@'>(PropertyList::array({PropertyList()}));
    } else if (selector == "throwOther") {
      throw 7;
    }
  }
  std::vector<std::string> all() {
    const std::lock_guard guard(mutex);
    return told;
  }
  std::mutex mutex;
  std::vector<std::string> told;
  std::thread::id thread;
  std::function<void()> onTold;  // of the main thread
};

class KeldProxyTest : public ::testing::Test {
 protected:
  KeldProxyTest() : connection_(-1) {
    gLoggingEnabled = true;
    socket_ = KeldaneSocket::create();
    proxy_ = KeldaneProxy::create();
    proxy_->setSocket(socket_);
    proxy_->setProtocol(&KeldaneDaemonProtocol);
    proxy_->setDelegate(target_);
    EXPECT_TRUE(socket_->connectToPath(peer_.path()));
    connection_ = peer_.accept();
  }
  ~KeldProxyTest() override {
    proxy_->close();
    socket_->close();
    EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
  }
  static PropertyList request(const char* selector, PropertyList::Array pairs, int count = -1) {
    PropertyList::Array elements = {
        0U, "v", selector,
        count < 0 ? static_cast<unsigned>(pairs.size() / 2) : static_cast<unsigned>(count)};
    elements.insert(elements.end(), pairs.begin(), pairs.end());
    return PropertyList::array(elements);
  }
  void sendRequest(const PropertyList& value) { connection_.writeFrame(1, RawConnection::payloadOf(value)); }
  Bytes payload(const PropertyList& value) {
    const std::string text = RawConnection::payloadOf(value);
    return {text.begin(), text.end()};
  }
  /// Answers the next request with a value, on another thread.
  std::thread answerNext(const PropertyList& value) {
    return std::thread([this, value] {
      connection_.readFrame();
      connection_.answer(value);
    });
  }

  LogCapture log_;
  RawPeer peer_;
  RawConnection connection_;
  std::shared_ptr<Target> target_ = std::make_shared<Target>();
  std::shared_ptr<KeldaneSocket> socket_;
  std::shared_ptr<KeldaneProxy> proxy_;
};

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
  socket_->setCallDelegateOnMainThread(true);  // which nobody runs here
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
  // Large enough that no buffer takes it all.
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
    connection_.answer(2);  // nobody asked
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

TEST_F(KeldProxyTest, SettingASocketClosesTheOneBefore) {
  const auto next = KeldaneSocket::create();
  proxy_->setSocket(next);
  EXPECT_TRUE(socket_->isZombie());
  EXPECT_TRUE(connection_.isAtEnd());
}

// --- What the peer calls here ---

TEST_F(KeldProxyTest, PerformsARequestDirectlyAndAnswers) {
  sendRequest(request("add:to:", {"i", 40, "i", 2}));
  const Frame frame = connection_.readFrame();
  EXPECT_EQ(frame.marker, testing::kMarkerText);
  EXPECT_EQ(frame.type, 2);
  EXPECT_TRUE(frame.value().identical(42));
}

TEST_F(KeldProxyTest, ConvertsTheSendersTypes) {
  sendRequest(request("add:to:", {"@", "40", "d", 2.9}));
  EXPECT_EQ(connection_.readFrame().value().intValue(), 42);
}

TEST_F(KeldProxyTest, AOneWayRequestGetsNoAnswer) {
  sendRequest(request("tell:", {"@", "hello"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{"hello"}; }));
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_EQ(connection_.readFrame().value().intValue(), 2) << "the first thing that came back";
}

TEST_F(KeldProxyTest, NothingIsAnAnswerOfLengthZero) {
  sendRequest(request("nothing", {}));
  const Frame frame = connection_.readFrame();
  EXPECT_EQ(frame.type, 2);
  EXPECT_EQ(frame.length, 0U);
}

TEST_F(KeldProxyTest, AnAnswerThatCannotBeWrittenIsLoggedAndEmpty) {
  sendRequest(request("odd", {}));
  EXPECT_EQ(connection_.readFrame().length, 0U);
  EXPECT_TRUE(log_.hasPart("Failed to serialize response: "));
}

TEST_F(KeldProxyTest, AnExceptionIsLoggedAndAnsweredWithWhatThereIs) {
  sendRequest(request("fail", {}));
  const Frame frame = connection_.readFrame();
  EXPECT_EQ(frame.type, 2);
  EXPECT_EQ(frame.value().intValue(), 0);
  EXPECT_TRUE(log_.hasPart(
      "ERROR: KeldaneProxy processInvocationArgs caught exception: NSInvalidArgumentException: broken."));
  sendRequest(request("throwOther", {}));
  EXPECT_TRUE(eventually(
      [&] { return log_.has("ERROR: KeldaneProxy processInvocationArgs caught unknown exception."); }));
}

TEST_F(KeldProxyTest, ARequestIsPerformedDirectlyOnlyWhenNoCallIsOnItsWay) {
  std::thread caller([&] { EXPECT_EQ(proxy_->pausedMinutes(), 5U); });
  connection_.readFrame();  // the call is on its way now
  std::atomic<pid_t> thread = 0;
  std::atomic<bool> returned = false;
  std::thread performer([&] {
    thread = gettid();
    const Bytes bytes = payload(request("tell:", {"@", "word"}));
    proxy_->processData(&bytes, 1);
    returned = true;
  });
  EXPECT_TRUE(eventually([&] { return testing::isAsleep(thread); }));
  EXPECT_FALSE(returned);
  EXPECT_TRUE(target_->all().empty());
  connection_.answer(5);
  caller.join();
  performer.join();
  EXPECT_EQ(target_->all(), std::vector<std::string>{"word"});
}

TEST_F(KeldProxyTest, RequestsThatAreNoneAreIgnored) {
  const std::size_t before = log_.lines().size();
  sendRequest(PropertyList::array({0U, "v", "tell:"}));
  sendRequest(PropertyList::array({4U, "i", "add:to:"}));
  sendRequest(PropertyList("no array"));
  sendRequest(PropertyList::dictionary({{"a", 1}, {"b", 2}, {"c", 3}, {"d", 4}}));
  sendRequest(request("unknown:", {"@", "x"}));
  sendRequest(PropertyList::array({0U, "v", 5, 0U}));
  connection_.writeFrame(1, "");
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_EQ(connection_.readFrame().value().intValue(), 2);
  EXPECT_EQ(log_.lines().size(), before);
}

TEST_F(KeldProxyTest, AnUnreadableRequestIsLogged) {
  connection_.writeFrame(1, "bplist00 garbage");
  EXPECT_TRUE(eventually([&] { return log_.hasPart("Failed to unserialize request: "); }));
}

TEST_F(KeldProxyTest, MoreArgumentsThanThereAreIsALoggedException) {
  sendRequest(request("tell:", {"@", "x"}, 2));
  EXPECT_TRUE(eventually(
      [&] { return log_.hasPart("ERROR: KeldaneProxy processData caught exception: NSRangeException"); }));
  sendRequest(request("tell:", {"@", "y"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{"y"}; }))
      << "and nothing else";
}

TEST_F(KeldProxyTest, AnArgumentCountThatWrapsAroundReadsNothing) {
  sendRequest(PropertyList::array({0U, "v", "tell:", std::uint64_t{0x80000000}, "@", "x"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{""}; }));
}

TEST_F(KeldProxyTest, AnUnknownArgumentTypeIsALoggedException) {
  sendRequest(request("tell:", {"#", "x"}));
  EXPECT_TRUE(eventually([&] {
    return log_.hasPart("ERROR: KeldaneProxy processData caught exception: *** Assertion failure in ") &&
           log_.hasPart("Unknown argument type specifier: #");
  }));
  sendRequest(request("tell:", {7, "x"}));
  EXPECT_TRUE(eventually([&] { return log_.hasPart("Unknown argument type specifier: ."); }));
}

TEST_F(KeldProxyTest, AnythingElseThatIsThrownIsLoggedToo) {
  sendRequest(request("describeBadly", {}));
  EXPECT_TRUE(
      eventually([&] { return log_.has("ERROR: KeldaneProxy processData caught unknown exception."); }));
}

TEST_F(KeldProxyTest, DamagedMessagesDoNoHarm) {
  proxy_->socketClosing();  // so that results which nobody takes are dropped
  const std::string good = RawConnection::payloadOf(request("tell:", {"@", "text", "i", 2, "d", 1.5}));
  std::uint32_t random = 1;
  for (std::size_t round = 0; round < 5000; ++round) {
    Bytes damaged(good.begin(), good.end());
    for (int i = 0; i < 3; ++i) {
      random = random * 1664525 + 1013904223;
      damaged[(random >> 8) % damaged.size()] = static_cast<std::uint8_t>(random >> 24);
    }
    damaged.resize(round % 4 == 0 ? random % (damaged.size() + 1) : damaged.size());
    EXPECT_TRUE(proxy_->processData(&damaged, 1));
    EXPECT_TRUE(proxy_->processData(&damaged, 2));
  }
  const std::size_t told = target_->all().size();
  EXPECT_LT(told, 5000U) << "most of them were refused";
  const Bytes whole = payload(request("tell:", {"@", "whole"}));
  EXPECT_TRUE(proxy_->processData(&whole, 1));
  ASSERT_EQ(target_->all().size(), told + 1);
  EXPECT_EQ(target_->all().back(), "whole");
}

TEST_F(KeldProxyTest, NoDelegateIsALoggedAssertionWithoutAnAnswer) {
  target_.reset();
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_TRUE(eventually([&] { return log_.hasPart("Common/KeldProxy:187: delegate is NULL"); }));
  EXPECT_FALSE(connection_.isReadable(50));
}

TEST_F(KeldProxyTest, OnTheMainThreadAValueCannotBeReturned) {
  proxy_->setCallDelegateOnMainThread(true);
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_TRUE(eventually([&] {
    return log_.hasPart(
        "Common/KeldProxy:185: invocation on main thread not allowed for methods with non-zero return size");
  }));
  EXPECT_FALSE(connection_.isReadable(50));
}

TEST_F(KeldProxyTest, QueuedRequestsArePerformedInOrderOnTheMainThreadByOneWakeUp) {
  proxy_->setCallDelegateOnMainThread(true);
  for (const char* word : {"a", "b", "c"}) {
    const Bytes bytes = payload(request("tell:", {"@", word}));
    proxy_->processData(&bytes, 1);
  }
  EXPECT_TRUE(target_->all().empty());
  EXPECT_EQ(RunLoop::main().load().work, 1U) << "one message for the batch";
  RunLoop::main().runDue();
  EXPECT_EQ(target_->all(), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(target_->thread, std::this_thread::get_id());
}

TEST_F(KeldProxyTest, WhatIsQueuedWhileAQueuedRequestRunsTheRunLoopIsPerformedThere) {
  proxy_->setCallDelegateOnMainThread(true);
  const auto queue = [&](const char* word) {
    const Bytes bytes = payload(request("tell:", {"@", word}));
    proxy_->processData(&bytes, 1);
  };
  target_->onTold = [&] {
    target_->onTold = {};
    queue("inner");
    RunLoop::main().runDue();
    EXPECT_EQ(target_->all(), (std::vector<std::string>{"outer", "inner"}));
  };
  queue("outer");
  RunLoop::main().runDue();
  EXPECT_EQ(target_->all(), (std::vector<std::string>{"outer", "inner"}));
}

TEST_F(KeldProxyTest, AQueuedRequestThatThrowsDoesNotHoldUpTheOthers) {
  proxy_->setCallDelegateOnMainThread(true);
  for (const PropertyList& one :
       {request("tell:", {"@", "a"}), request("throwOther", {}), request("tell:", {"@", "b"})}) {
    const Bytes bytes = payload(one);
    proxy_->processData(&bytes, 1);
  }
  EXPECT_TRUE(testing::eventuallyRunning([&] {
    return target_->all() == (std::vector<std::string>{"a", "b"});
  }));
  const Bytes bytes = payload(request("tell:", {"@", "c"}));
  proxy_->processData(&bytes, 1);
  EXPECT_TRUE(testing::eventuallyRunning([&] { return target_->all().size() == 3; }));
}

TEST_F(KeldProxyTest, WhatIsQueuedForAProxyThatIsGoneIsDropped) {
  auto socket = KeldaneSocket::create();
  auto proxy = KeldaneProxy::create();
  proxy->setSocket(socket);
  proxy->setDelegate(target_);
  proxy->setCallDelegateOnMainThread(true);
  const Bytes bytes = payload(request("tell:", {"@", "late"}));
  proxy->processData(&bytes, 1);
  EXPECT_EQ(RunLoop::main().load().work, 1U);
  proxy->close();
  socket->close();
  proxy.reset();
  socket.reset();
  EXPECT_EQ(RunLoop::main().load().work, 0U);
  RunLoop::main().runDue();
  EXPECT_TRUE(target_->all().empty());
}

TEST_F(KeldProxyTest, WhatIsQueuedForADelegateThatIsGoneIsDropped) {
  proxy_->setCallDelegateOnMainThread(true);
  bool isTold = false;
  target_->onTold = [&] { isTold = true; };
  const Bytes bytes = payload(request("tell:", {"@", "late"}));
  proxy_->processData(&bytes, 1);
  const std::weak_ptr<Target> gone = target_;
  target_.reset();
  EXPECT_TRUE(gone.expired()) << "the queue does not hold it";
  EXPECT_EQ(RunLoop::main().load().work, 1U);
  RunLoop::main().runDue();
  EXPECT_EQ(RunLoop::main().load().work, 0U);
  EXPECT_FALSE(isTold);
}

}  // namespace
}  // namespace keldane
