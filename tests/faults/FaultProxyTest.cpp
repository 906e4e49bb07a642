#include "tests/tools/faults/proxy/FaultProxy.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "tests/support/process/RawPeer.h"

namespace keldane::testing {
namespace {

constexpr std::int32_t kRequest = 1;
constexpr std::int32_t kResponse = 2;
constexpr std::size_t kEverything = 1U << 20U;

/// A client and a peer that the test controls byte by byte, with the proxy between them. The peer stands for
/// the daemon; in most tests it echoes.
class FaultProxyTest : public ::testing::Test {
 protected:
  static std::string frame(int number, std::int32_t type = kRequest) {
    return RawConnection::frame(type, RawConnection::payloadOf(PropertyList::array({number, "text", true})));
  }

  /// Opens a connection with this plan.
  void open(const std::string& plan) {
    report_ = std::async(std::launch::async,
                         [this, parsed = FaultPlan::parse(plan).value()] { return proxy_.serve(parsed); });
    connect();
  }
  void connect() { connect(path_); }
  void connect(const std::string& path) {
    client_.emplace(connectedTo(path));
    peer_.emplace(daemon_.accept());
  }
  /// The client leaves. Returns the report on the connection.
  ConnectionReport leave() {
    client_->close();
    return report_.get();
  }
  /// Answers each question once on a clean connection, so that the proxy knows which frames will come.
  void record(int count) {
    open("");
    for (int i = 0; i < count; ++i) {
      client_->write(frame(i));
      EXPECT_EQ(peer_->read(frame(i).size()), frame(i));
      peer_->write(answer(i));
      EXPECT_EQ(client_->read(answer(i).size()), answer(i));
    }
    leave();
  }
  static std::string answer(int number) { return frame(100 + number, kResponse); }

  /// Sends `sent` in a direction with a fault, and returns the bytes that arrive.
  std::string arriving(const std::string& direction, const std::string& fault, const std::string& sent,
                       std::size_t expected) {
    open(direction + ' ' + fault);
    RawConnection& from = direction == "requests" ? *client_ : *peer_;
    RawConnection& to = direction == "requests" ? *peer_ : *client_;
    if (direction == "answers") {
      client_->write(frame(9));  // a client that says nothing is not served
    }
    from.write(sent);
    const std::string got = to.read(expected);
    const ConnectionReport report = leave();
    if (direction == "requests") {
      return got + peer_->read(kEverything);
    }
    EXPECT_EQ(got, report.delivered);
    return got;
  }
  void expectInBoth(const std::string& fault, const std::string& sent, const std::string& expected) {
    for (const char* direction : {"requests", "answers"}) {
      EXPECT_EQ(arriving(direction, fault, sent, expected.size()), expected) << direction << ' ' << fault;
    }
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_ / "proxy.sock";
  RawPeer daemon_;
  FaultProxy proxy_{path_, daemon_.path()};
  std::future<ConnectionReport> report_;
  std::optional<RawConnection> client_;
  std::optional<RawConnection> peer_;
};

TEST_F(FaultProxyTest, WithoutAFaultPassesEverythingOn) {
  open("");
  client_->write(frame(1) + frame(2));
  EXPECT_EQ(peer_->read(2 * frame(1).size()), frame(1) + frame(2));
  peer_->write(frame(1) + frame(2));
  EXPECT_EQ(client_->read(2 * frame(1).size()), frame(1) + frame(2));
  const ConnectionReport report = leave();
  EXPECT_TRUE(report.endedByClient);
  EXPECT_EQ(report.requests, 2U);
  EXPECT_EQ(report.early, 0U);
  EXPECT_EQ(report.delivered, frame(1) + frame(2));
  EXPECT_EQ(report.forwarded, frame(1) + frame(2));
}

TEST_F(FaultProxyTest, WaitsForTheDaemonsFarewell) {
  const std::string path = folder_ / "patient.sock";
  FaultProxy proxy(path, daemon_.path(), Farewell::daemon);
  report_ = std::async(std::launch::async, [&] { return proxy.serve({}); });
  connect(path);
  client_->write(frame(1));
  client_->close();
  EXPECT_EQ(peer_->read(kEverything), frame(1)) << "it sees the end";
  peer_->write(frame(2));
  EXPECT_EQ(report_.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  peer_->close();
  EXPECT_EQ(report_.get().forwarded, frame(1));
}

TEST_F(FaultProxyTest, PassesOnWhatIsNoFrame) {
  const std::string noise(100, 'x');
  expectInBoth("delay 0 0", noise, noise);
}

TEST_F(FaultProxyTest, WaitsForWhoSaysSomething) {
  report_ = std::async(std::launch::async, [this] { return proxy_.serve({}); });
  for (int i = 0; i < 2; ++i) {
    connect();
    if (i == 0) {
      client_->close();
    }
  }
  client_->write(frame(0));
  EXPECT_EQ(peer_->read(frame(0).size()), frame(0));
  EXPECT_EQ(leave().requests, 1U);
}

TEST_F(FaultProxyTest, Delays) {
  open("answers delay 1 50");
  client_->write(frame(0));
  peer_->write(frame(1));
  EXPECT_EQ(client_->read(frame(1).size()), frame(1));
  const auto start = std::chrono::steady_clock::now();
  peer_->write(frame(2));
  EXPECT_EQ(client_->read(frame(2).size()), frame(2));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
  leave();
  expectInBoth("delay 0 3", frame(0) + frame(1), frame(0) + frame(1));
}

TEST_F(FaultProxyTest, SplitsEveryByte) {
  expectInBoth("split 0 1", frame(0) + frame(1), frame(0) + frame(1));
  const std::string large = RawConnection::frame(kRequest, std::string(5000, 'x'));
  open("requests split 0 1");
  client_->write(large);
  ASSERT_TRUE(peer_->isReadable(20000));
  // The proxy pauses after each byte until it is read, so the first read cannot get everything.
  const std::string first = peer_->readOnce(large.size());
  EXPECT_LT(first.size(), large.size());
  EXPECT_EQ(first + peer_->read(large.size() - first.size()), large);
  leave();
}

TEST_F(FaultProxyTest, JoinsFrames) {
  open("requests join 1 2");
  client_->write(frame(0));
  EXPECT_EQ(peer_->read(frame(0).size()), frame(0));
  client_->write(frame(1) + frame(2) + frame(3));
  EXPECT_EQ(peer_->read(3 * frame(0).size()), frame(1) + frame(2) + frame(3));
  leave();
  expectInBoth("join 0 3", frame(0) + frame(1), frame(0) + frame(1));
}

TEST_F(FaultProxyTest, PutsGarbageBeforeAFrame) {
  for (const std::size_t length : {1U, 36U, 70000U}) {
    const std::string fault = "garbage 1 " + std::to_string(length);
    const std::string got = arriving("answers", fault, frame(0) + frame(1), 2 * frame(0).size() + length);
    ASSERT_EQ(got.size(), 2 * frame(0).size() + length);
    EXPECT_TRUE(got.starts_with(frame(0)));
    EXPECT_TRUE(got.ends_with(frame(1)));
    const std::string garbage = got.substr(frame(0).size(), length);
    EXPECT_EQ(garbage.find(kMarkerText), std::string::npos);
    EXPECT_EQ(arriving("requests", fault, frame(0) + frame(1), got.size()), got) << "always the same";
  }
}

TEST_F(FaultProxyTest, CutsBytesOut) {
  const std::string sent = frame(0) + frame(1);
  expectInBoth("cut 40 7", sent, sent.substr(0, 40) + sent.substr(47));
  expectInBoth("cut 0 36", sent, sent.substr(36));
}

TEST_F(FaultProxyTest, FlipsABit) {
  std::string expected = frame(0) + frame(1);
  expected[60] = static_cast<char>(expected[60] ^ 8);
  expectInBoth("flip 60 3", frame(0) + frame(1), expected);
}

TEST_F(FaultProxyTest, FlipsSeveralBits) {
  std::string expected = frame(0);
  expected[0] = static_cast<char>(expected[0] ^ 1);
  expected[44] = static_cast<char>(expected[44] ^ '\x80');
  open("requests flip 0 0; requests flip 44 7");
  client_->write(frame(0));
  EXPECT_EQ(peer_->read(expected.size()), expected);
  leave();
}

TEST_F(FaultProxyTest, StopsReading) {
  for (const char* direction : {"requests", "answers"}) {
    const std::string sent = frame(0) + frame(1);
    const std::size_t place = frame(0).size() + 10;
    EXPECT_EQ(arriving(direction, "stop " + std::to_string(place) + " 0", sent, frame(0).size()), frame(0));
  }
}

TEST_F(FaultProxyTest, EndsAConnectionThatStalls) {
  open("requests stop 0 0");
  client_->write(frame(0));
  EXPECT_TRUE(client_->isAtEnd());
  EXPECT_TRUE(peer_->isAtEnd());
  const ConnectionReport report = report_.get();
  EXPECT_FALSE(report.endedByClient);
  EXPECT_EQ(report.requests, 0U);
}

TEST_F(FaultProxyTest, NeverEndsAConnectionThatOnlyTakesItsTime) {
  open("requests split 0 1; answers delay 0 5; answers garbage 0 36");
  client_->write(frame(0));
  EXPECT_FALSE(client_->isReadable(400));
  peer_->write(frame(1));
  EXPECT_TRUE(client_->isReadable(20000));
  EXPECT_TRUE(leave().endedByClient);
}

TEST_F(FaultProxyTest, ClosesAtAByte) {
  const std::string sent = frame(0) + frame(1);
  for (const std::size_t place : {std::size_t{1}, frame(0).size(), sent.size() - 1}) {
    for (const char* direction : {"requests", "answers"}) {
      open(std::string(direction) + " close " + std::to_string(place) + " 0");
      const bool isRequest = std::string_view(direction) == "requests";
      (isRequest ? *client_ : *peer_).write(sent);
      EXPECT_EQ((isRequest ? *peer_ : *client_).read(sent.size()), sent.substr(0, place));
      EXPECT_FALSE(report_.get().endedByClient);
    }
  }
}

TEST_F(FaultProxyTest, ClosesBeforeTheFirstByte) {
  open("answers close 0 0");
  EXPECT_TRUE(client_->isAtEnd());
  EXPECT_TRUE(peer_->isAtEnd());
  EXPECT_EQ(report_.get().delivered, "");
}

TEST_F(FaultProxyTest, RepeatsAFrame) {
  expectInBoth("repeat 0 0", frame(0) + frame(1), frame(0) + frame(0) + frame(1));
  expectInBoth("repeat 0 1", frame(0) + frame(1), frame(0) + frame(1) + frame(0));
  expectInBoth("repeat 0 2", frame(0) + frame(1), frame(0) + frame(1));
}

TEST_F(FaultProxyTest, AnswersEarlyWithWhatItKnows) {
  record(3);
  open("answers early 0 2");
  EXPECT_EQ(client_->read(2 * answer(0).size()), answer(0) + answer(1));
  client_->write(frame(0));
  EXPECT_EQ(peer_->read(frame(0).size()), frame(0));
  peer_->write(answer(0));
  EXPECT_EQ(client_->read(answer(0).size()), answer(0));
  const ConnectionReport report = leave();
  EXPECT_EQ(report.early, 2 * answer(0).size());
  EXPECT_EQ(report.delivered, answer(0) + answer(1) + answer(0));
}

TEST_F(FaultProxyTest, AnswersEarlyInsteadOfTheDaemon) {
  record(3);
  open("answers early 1 2");
  EXPECT_EQ(client_->read(2 * answer(0).size()), answer(0) + answer(1));
  client_->write(frame(0));
  peer_->write(answer(7) + answer(8) + answer(9));
  EXPECT_EQ(client_->read(answer(9).size()), answer(9));
  leave();
}

TEST_F(FaultProxyTest, AsksEarlyWithWhatItKnows) {
  record(3);
  open("requests early 1 9");
  EXPECT_EQ(peer_->read(3 * frame(0).size()), frame(0) + frame(1) + frame(2));
  client_->write(frame(0) + frame(1) + frame(2) + frame(3));
  EXPECT_EQ(peer_->read(frame(3).size()), frame(3));
  EXPECT_EQ(leave().requests, 4U);
}

TEST_F(FaultProxyTest, ReordersTwoFrames) {
  record(3);
  open("answers reorder 1 0");
  client_->write(frame(0));
  peer_->write(answer(0) + answer(1));
  EXPECT_EQ(client_->read(3 * answer(0).size()), answer(0) + answer(2) + answer(1));
  peer_->write(answer(2) + answer(3));
  EXPECT_EQ(client_->read(answer(3).size()), answer(3)) << "what has gone out before is left out";
  leave();
}

TEST_F(FaultProxyTest, KnowsOnlyCleanConnections) {
  record(2);
  open("answers delay 0 1");
  client_->write(frame(5));
  peer_->write(answer(5));
  EXPECT_EQ(client_->read(answer(5).size()), answer(5));
  leave();
  open("answers early 0 1");
  EXPECT_EQ(client_->read(answer(0).size()), answer(0));
  client_->write(frame(0));
  leave();
}

TEST_F(FaultProxyTest, SwapsTypes) {
  std::string other = frame(1);
  other.replace(36, 4, std::string("\0\1\0\0", 4));
  expectInBoth("type 1 256", frame(0) + frame(1), frame(0) + other);
}

TEST_F(FaultProxyTest, SwapsTheKindOfAValue) {
  const auto swapped = [](PropertyList::Array values) {
    return RawConnection::frame(kRequest, RawConnection::payloadOf(PropertyList::array(std::move(values))));
  };
  expectInBoth("value 1 1", frame(0) + frame(5), frame(0) + swapped({"5", "text", true}));
  expectInBoth("value 0 2", frame(5), swapped({5, 7, true}));
  expectInBoth("value 0 3", frame(5), swapped({5, "text", 1.5}));
  expectInBoth("value 0 9", frame(5), frame(5));
  const std::string whole = RawConnection::frame(
      kRequest, RawConnection::payloadOf(PropertyList::dictionary({{"simpleFlags", 2}})));
  expectInBoth("value 0 0", frame(5), whole);
}

TEST_F(FaultProxyTest, LeavesAFrameWithoutValuesAsItIs) {
  const std::string empty = RawConnection::frame(kResponse, "");
  expectInBoth("value 0 3", empty, empty);
}

TEST(ConnectionReport, IsReadAsItIsWritten) {
  const ConnectionReport reports[] = {
      {true, 3, 44, std::string("\0\xFF mn", 5), "up"}, {false, 0, 0, "", "x"}, {false, 0, 0, "", ""}};
  for (const ConnectionReport& report : reports) {
    EXPECT_EQ(ConnectionReport::parse(report.line()), report) << report.line();
  }
  EXPECT_EQ(reports[0].line(), "client 3 44 :00ff206d6e :7570");
  EXPECT_FALSE(ConnectionReport::parse(""));
}

}  // namespace
}  // namespace keldane::testing
