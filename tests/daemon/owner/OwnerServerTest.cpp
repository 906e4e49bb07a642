#include "daemon/owner/OwnerServer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/FakeOwnerRequests.h"
#include "tests/support/process/RawPeer.h"
#include "tests/support/process/Stranger.h"

namespace keldane {
namespace {

using testing::connectedTo;
using testing::eventually;
using testing::RawConnection;

std::string requestOf(const std::string& selector, const PropertyList& argument) {
  return RawConnection::frame(
      kRequestFrame, RawConnection::payloadOf(PropertyList::array({8, "@", selector, 1, "@", argument})));
}

PropertyList answerTo(RawConnection& peer, const std::string& selector,
                      const PropertyList::Entries& request) {
  peer.write(requestOf(selector, PropertyList::dictionary(request)));
  return peer.readFrame().value();
}

class OwnerServerTest : public ::testing::Test {
 protected:
  void SetUp() override { begin(); }
  void TearDown() override {
    if (server_) {
      server_->stop();
    }
  }
  void begin() {
    server_ = std::make_shared<OwnerServer>(daemon_, socket_, false, limits_);
    std::string error;
    ASSERT_TRUE(server_->start(&error)) << error;
  }
  std::string path() const { return ownerSocketPath(socket_); }

  const testing::TemporaryFolder folder_;
  const std::string socket_ = folder_ / "d.sock";
  ServerLimits limits_;
  const std::shared_ptr<testing::FakeOwnerRequests> daemon_ = std::make_shared<testing::FakeOwnerRequests>();
  std::shared_ptr<OwnerServer> server_;
};

TEST_F(OwnerServerTest, AnswersItsOwnUser) {
  daemon_->answer = [](const std::string& operation, const PropertyList& request) {
    return PropertyList::dictionary({{"operation", operation}, {"request", request}});
  };
  RawConnection peer = connectedTo(path());
  const PropertyList answer = answerTo(peer, "find:", {{"pattern", "*.txt"}});
  EXPECT_EQ(answer["operation"].string(), "find");
  EXPECT_EQ(answer["request"]["pattern"].string(), "*.txt");
  EXPECT_EQ(answerTo(peer, "repository:", {})["operation"].string(), "repository");
}

TEST_F(OwnerServerTest, IsOpenToItsUserAlone) {
  struct stat status {};
  ASSERT_EQ(lstat(path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(OwnerServerTest, TurnsAStrangerAway) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can be somebody else";
  }
  const testing::LogCapture log;
  // The modes are as if somebody had widened them.
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(path(), std::filesystem::perms(0777));
  RawConnection stranger = testing::connectedAs(testing::kStranger, path());
  stranger.tryWrite(requestOf("exportKey:", PropertyList::dictionary({})));
  EXPECT_TRUE(stranger.isAtEnd());
  EXPECT_TRUE(log.hasPart("uid " + std::to_string(testing::kStranger) + " was turned away from " + path()));
  EXPECT_TRUE(daemon_->asked().empty());
}

TEST_F(OwnerServerTest, AnswersWhatIsWrongWithARequest) {
  RawConnection peer = connectedTo(path());
  EXPECT_EQ(answerTo(peer, "find:", {{"pattern", 7}})["error"].string(),
            "\"pattern\" of the request is not a text.");
  peer.write(requestOf("find:", "no dictionary"));
  EXPECT_EQ(peer.readFrame().value()["error"].string(), "The request is no dictionary.");
  EXPECT_TRUE(daemon_->asked().empty());
}

TEST_F(OwnerServerTest, PassesOverWhatNobodyAskedFor) {
  RawConnection peer = connectedTo(path());
  for (int i = 0; i < 3; ++i) {
    peer.answer("an answer");
  }
  peer.write(requestOf("daemonState", PropertyList::dictionary({})));
  peer.writeFrame(kRequestFrame, "no property list");
  EXPECT_TRUE(answerTo(peer, "failures:", {}).isDictionary());
}

TEST_F(OwnerServerTest, LetsALongRequestHoldUpItsOwnConnectionOnly) {
  std::promise<void> done;
  const std::shared_future<void> whenDone = done.get_future().share();
  daemon_->answer = [whenDone](const std::string& operation, const PropertyList&) {
    if (operation == "check") {
      whenDone.wait();
    }
    return PropertyList::dictionary({{"operation", operation}});
  };
  RawConnection first = connectedTo(path());
  RawConnection second = connectedTo(path());
  first.write(requestOf("check:", PropertyList::dictionary({{"mode", "data"}})));
  first.write(requestOf("failures:", PropertyList::dictionary({})));
  ASSERT_TRUE(eventually([&] { return daemon_->asked().size() == 1; }));
  EXPECT_EQ(answerTo(second, "repository:", {})["operation"].string(), "repository");
  EXPECT_FALSE(first.isReadable(0));
  done.set_value();
  EXPECT_EQ(first.readFrame().value()["operation"].string(), "check");
  EXPECT_EQ(first.readFrame().value()["operation"].string(), "failures");
}

TEST_F(OwnerServerTest, EndsWhileARequestIsBeingPerformed) {
  std::promise<void> done;
  const std::shared_future<void> whenDone = done.get_future().share();
  daemon_->answer = [whenDone](const std::string&, const PropertyList&) {
    whenDone.wait();
    return PropertyList::dictionary({});
  };
  RawConnection peer = connectedTo(path());
  peer.write(requestOf("check:", PropertyList::dictionary({{"mode", "data"}})));
  ASSERT_TRUE(eventually([&] { return daemon_->asked().size() == 1; }));
  server_->stop();
  EXPECT_TRUE(peer.isAtEnd());
  EXPECT_FALSE(std::filesystem::exists(path()));
  server_.reset();
  EXPECT_GT(daemon_.use_count(), 1) << "the request keeps it";
  done.set_value();
  EXPECT_TRUE(eventually([&] { return daemon_.use_count() == 1; }));
}

TEST_F(OwnerServerTest, TakesNoMoreThanSomePeers) {
  std::vector<RawConnection> peers;
  for (std::size_t i = 0; i < OwnerServer::kMostPeers; ++i) {
    peers.push_back(connectedTo(path()));
    ASSERT_TRUE(answerTo(peers.back(), "failures:", {}).isDictionary());
  }
  EXPECT_TRUE(connectedTo(path()).isAtEnd());
  peers.pop_back();
  EXPECT_TRUE(eventually([&] {
    RawConnection peer = connectedTo(path());
    return peer.tryWrite(requestOf("failures:", PropertyList::dictionary({}))) &&
           peer.readFrame().value().isDictionary();
  }));
}

TEST_F(OwnerServerTest, EndsTheConnectionOfWhoGoesBeyondALimit) {
  server_->stop();
  limits_.longestRequest = 1000;
  limits_.requestTime = std::chrono::milliseconds(100);
  begin();
  RawConnection large = connectedTo(path());
  large.tryWrite(requestOf("find:", PropertyList::dictionary({{"pattern", std::string(2000, 'x')}})));
  EXPECT_TRUE(large.isAtEnd());
  RawConnection slow = connectedTo(path());
  slow.write("8A2E");
  EXPECT_TRUE(slow.isAtEnd());
}

TEST_F(OwnerServerTest, IsRefusedAPathThatIsTooLong) {
  const std::string socket = folder_ / std::string(103 - folder_.path().string().size() - 1, 's');
  const auto server = std::make_shared<OwnerServer>(daemon_, socket);
  std::string error;
  EXPECT_FALSE(server->start(&error));
  EXPECT_EQ(error, "The socket path " + socket + ".owner is empty or longer than 103 bytes.");
}

TEST_F(OwnerServerTest, IsRefusedAPathThatIsServed) {
  const auto server = std::make_shared<OwnerServer>(daemon_, socket_);
  std::string error;
  EXPECT_FALSE(server->start(&error));
  EXPECT_EQ(error, "Another keldaned already serves " + path() + ".");
}

TEST_F(OwnerServerTest, ServesAgainAfterItWasStopped) {
  server_->stop();
  begin();
  RawConnection peer = connectedTo(path());
  EXPECT_TRUE(answerTo(peer, "failures:", {}).isDictionary());
}

}  // namespace
}  // namespace keldane
