#include "Common/transport/SocketLimits.h"

#include "tests/Common/transport/KeldSocketFixture.h"

namespace keldane {
namespace {

using testing::RawConnection;

/// Gives each peer limits, and a data delegate when the test says so.
struct Server : testing::SocketDelegate {
  bool socketAccepted(const std::shared_ptr<KeldaneSocket>& child) override {
    child->setLimits(limits);
    return !turnsAway;
  }
  SocketLimits limits = {
      1000, std::chrono::seconds(20), std::chrono::seconds(20), std::chrono::seconds(20), nullptr, nullptr};
  std::atomic<bool> turnsAway = false;
};

class SocketLimitsTest : public ::testing::Test {
 protected:
  void listen() {
    listener_->setSocketDelegate(server_);
    ASSERT_TRUE(listener_->listenAtPath(folder_ / "l.sock"));
  }
  ~SocketLimitsTest() override {
    for (const auto& child : server_->children) {
      child->close();
    }
    listener_->close();
  }
  RawConnection connect() { return testing::connectedTo(folder_ / "l.sock"); }
  std::shared_ptr<KeldaneSocket> child() {
    EXPECT_TRUE(testing::eventually([&] { return server_->childCount() == 1; }));
    const std::lock_guard guard(server_->mutex);
    const std::shared_ptr<KeldaneSocket> only = server_->children.at(0);
    only->setSocketDelegate(server_);
    return only;
  }
  /// A peer that has 50 ms for a message, and what its messages are given to.
  std::pair<RawConnection, std::shared_ptr<testing::DataDelegate>> connectWithShortTime() {
    server_->limits.messageTime = std::chrono::milliseconds(50);
    server_->closesOnFailure = true;
    listen();
    RawConnection peer = connect();
    const auto data = std::make_shared<testing::DataDelegate>();
    child()->setDataDelegate(data);
    return {std::move(peer), data};
  }
  const testing::TemporaryFolder folder_;
  std::shared_ptr<Server> server_ = std::make_shared<Server>();
  std::shared_ptr<KeldaneSocket> listener_ = KeldaneSocket::create();
};

TEST_F(SocketLimitsTest, ASendGivesUpAPeerThatReadsNothing) {
  server_->limits.stallTime = std::chrono::milliseconds(50);
  listen();
  RawConnection peer = connect();
  EXPECT_FALSE(child()->sendData(Bytes(5'000'000, 0)));
  EXPECT_EQ(server_->failed, 1);
}

TEST_F(SocketLimitsTest, TheTimeOfAMessageBeginsWithItsFirstByteWhereverThatCame) {
  auto [peer, data] = connectWithShortTime();
  peer.write(RawConnection::frame(1, "whole") + RawConnection::frame(1, "begun").substr(0, 40));
  ASSERT_TRUE(data->waitFor(2));
  EXPECT_EQ(data->all(), (testing::Messages{{1, "whole"}, {kLinkFailed, "(none)"}}));
}

TEST_F(SocketLimitsTest, APayloadThatDoesNotComeInTimeIsNoMessage) {
  auto [peer, data] = connectWithShortTime();
  const std::string frame = RawConnection::frame(1, "payload");
  peer.write(frame.substr(0, frame.size() - 3));
  ASSERT_TRUE(data->waitFor(1));
  EXPECT_EQ(data->all(), (testing::Messages{{kLinkFailed, "(none)"}}));
}

TEST_F(SocketLimitsTest, AMessageBeyondTheLongestFailsTheLinkWithALine) {
  gLoggingEnabled = true;
  const testing::LogCapture log;
  server_->limits.longestMessage = 5;
  listen();
  RawConnection peer = connect();
  const auto data = std::make_shared<testing::DataDelegate>();
  child()->setDataDelegate(data);
  peer.write(RawConnection::frame(1, "12345"));
  ASSERT_TRUE(data->waitFor(1));
  EXPECT_FALSE(log.has("KeldaneSocket A message is too long"));
  peer.write(RawConnection::frame(1, "123456"));
  ASSERT_TRUE(data->waitFor(2));
  EXPECT_EQ(data->all()[0], (std::pair<std::int32_t, std::string>{1, "12345"}));
  EXPECT_EQ(data->all()[1].first, kLinkFailed);
  EXPECT_TRUE(log.has("KeldaneSocket A message is too long"));
}

TEST_F(SocketLimitsTest, WhoIsTurnedAwayIsClosedAndNeverCreated) {
  server_->turnsAway = true;
  listen();
  RawConnection peer = connect();
  EXPECT_TRUE(peer.isAtEnd());
  EXPECT_EQ(server_->childCount(), 0U);
}

TEST_F(SocketLimitsTest, WhatASmallMessageNeedsDrawsOnNoBudget) {
  server_->limits.unread = std::make_shared<ByteBudget>(0);
  listen();
  RawConnection peer = connect();
  const std::shared_ptr<KeldaneSocket> socket = child();
  EXPECT_TRUE(socket->sendData(Bytes(kSmallPayload, 'x')));
  EXPECT_EQ(peer.read(kSmallPayload), std::string(kSmallPayload, 'x'));
  EXPECT_FALSE(socket->sendData(Bytes(kSmallPayload + 1, 'x')));
}

// The limits hold from the first byte on, however early it comes.
TEST_F(SocketLimitsTest, LimitsAreThereBeforeAnythingIsRead) {
  listen();
  std::string header = RawConnection::frame(1, "");
  header.replace(header.size() - 4, 4, "\xFF\xFF\xFF\xFF");
  std::vector<RawConnection> peers;  // they stay, so that nothing but the limits ends a link
  for (int i = 0; i < 50; ++i) {
    peers.push_back(connect());
    peers.back().write(header + "few");
    ASSERT_TRUE(
        testing::eventually([&] { return server_->childCount() == static_cast<std::size_t>(i) + 1; }));
  }
  const auto data = std::make_shared<testing::DataDelegate>();
  for (const auto& each : server_->children) {
    each->setDataDelegate(data);
  }
  EXPECT_TRUE(data->waitFor(50)) << "each was given up";
}

}  // namespace
}  // namespace keldane
