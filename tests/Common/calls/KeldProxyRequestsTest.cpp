// The requests of the peer that the proxy performs.
#include "tests/Common/calls/KeldProxyFixture.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::Frame;
using testing::RawConnection;
using testing::Target;

class KeldProxyRequestsTest : public testing::KeldProxyTest {};

TEST_F(KeldProxyRequestsTest, PerformsARequestDirectlyAndAnswers) {
  sendRequest(request("add:to:", {"i", 40, "i", 2}));
  const Frame frame = connection_.readFrame();
  EXPECT_EQ(frame.marker, testing::kMarkerText);
  EXPECT_EQ(frame.type, 2);
  EXPECT_TRUE(frame.value().identical(42));
}

TEST_F(KeldProxyRequestsTest, ConvertsTheSendersTypes) {
  sendRequest(request("add:to:", {"@", "40", "d", 2.9}));
  EXPECT_EQ(connection_.readFrame().value().intValue(), 42);
}

TEST_F(KeldProxyRequestsTest, AOneWayRequestGetsNoAnswer) {
  sendRequest(request("tell:", {"@", "hello"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{"hello"}; }));
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_EQ(connection_.readFrame().value().intValue(), 2) << "the first thing that came back";
}

TEST_F(KeldProxyRequestsTest, NothingIsAnAnswerOfLengthZero) {
  sendRequest(request("nothing", {}));
  const Frame frame = connection_.readFrame();
  EXPECT_EQ(frame.type, 2);
  EXPECT_EQ(frame.length, 0U);
}

TEST_F(KeldProxyRequestsTest, AnAnswerThatCannotBeWrittenIsLoggedAndEmpty) {
  sendRequest(request("odd", {}));
  EXPECT_EQ(connection_.readFrame().length, 0U);
  EXPECT_TRUE(log_.hasPart("Failed to serialize response: "));
}

TEST_F(KeldProxyRequestsTest, AnExceptionIsLoggedAndAnsweredWithWhatThereIs) {
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

TEST_F(KeldProxyRequestsTest, ARequestIsPerformedDirectlyOnlyWhenNoCallIsOnItsWay) {
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

TEST_F(KeldProxyRequestsTest, RequestsThatAreNoneAreIgnored) {
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

TEST_F(KeldProxyRequestsTest, AnUnreadableRequestIsLogged) {
  connection_.writeFrame(1, "bplist00 garbage");
  EXPECT_TRUE(eventually([&] { return log_.hasPart("Failed to unserialize request: "); }));
}

TEST_F(KeldProxyRequestsTest, MoreArgumentsThanThereAreIsALoggedException) {
  sendRequest(request("tell:", {"@", "x"}, 2));
  EXPECT_TRUE(eventually(
      [&] { return log_.hasPart("ERROR: KeldaneProxy processData caught exception: NSRangeException"); }));
  sendRequest(request("tell:", {"@"}, 1));
  EXPECT_TRUE(eventually([&] { return log_.hasPart("index 5 beyond bounds [0 .. 4]"); })) << "a type alone";
  sendRequest(request("tell:", {"@", "y"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{"y"}; }))
      << "and nothing else";
}

TEST_F(KeldProxyRequestsTest, AnArgumentCountThatWrapsAroundReadsNothing) {
  sendRequest(PropertyList::array({0U, "v", "tell:", std::uint64_t{0x80000000}, "@", "x"}));
  EXPECT_TRUE(eventually([&] { return target_->all() == std::vector<std::string>{""}; }));
}

TEST_F(KeldProxyRequestsTest, AnUnknownArgumentTypeIsALoggedException) {
  sendRequest(request("tell:", {"#", "x"}));
  EXPECT_TRUE(eventually([&] {
    return log_.hasPart("ERROR: KeldaneProxy processData caught exception: *** Assertion failure in ") &&
           log_.hasPart("Unknown argument type specifier: #");
  }));
  sendRequest(request("tell:", {7, "x"}));
  EXPECT_TRUE(eventually([&] { return log_.hasPart("Unknown argument type specifier: ."); }));
}

TEST_F(KeldProxyRequestsTest, AnythingElseThatIsThrownIsLoggedToo) {
  sendRequest(request("describeBadly", {}));
  EXPECT_TRUE(
      eventually([&] { return log_.has("ERROR: KeldaneProxy processData caught unknown exception."); }));
}

TEST_F(KeldProxyRequestsTest, DamagedMessagesDoNoHarm) {
  proxy_->socketClosing();  // so that results that nobody fetches are dropped
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

TEST_F(KeldProxyRequestsTest, NoDelegateIsALoggedAssertionWithoutAnAnswer) {
  target_.reset();
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_TRUE(eventually([&] { return log_.hasPart("Common/KeldProxy:187: delegate is NULL"); }));
  EXPECT_FALSE(connection_.isReadable(50));
}

TEST_F(KeldProxyRequestsTest, OnTheMainThreadAValueCannotBeReturned) {
  proxy_->setCallDelegateOnMainThread(true);
  sendRequest(request("add:to:", {"i", 1, "i", 1}));
  EXPECT_TRUE(eventually([&] {
    return log_.hasPart(
        "Common/KeldProxy:185: invocation on main thread not allowed for methods with non-zero return size");
  }));
  EXPECT_FALSE(connection_.isReadable(50));
}

TEST_F(KeldProxyRequestsTest, QueuedRequestsArePerformedInOrderOnTheMainThreadByOneWakeUp) {
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

TEST_F(KeldProxyRequestsTest, WhatIsQueuedWhileAQueuedRequestRunsTheRunLoopIsPerformedThere) {
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

TEST_F(KeldProxyRequestsTest, AQueuedRequestThatThrowsDoesNotHoldUpTheOthers) {
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

TEST_F(KeldProxyRequestsTest, WhatIsQueuedForAProxyThatIsGoneIsDropped) {
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

TEST_F(KeldProxyRequestsTest, WhatIsQueuedForADelegateThatIsGoneIsDropped) {
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
