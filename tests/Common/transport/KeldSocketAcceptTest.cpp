// The thread that accepts peers.
#include <fcntl.h>
#include <sys/resource.h>

#include <ctime>

#include "tests/Common/transport/KeldSocketFixture.h"

namespace keldane {
namespace {

using testing::DataDelegate;
using testing::eventually;
using testing::Messages;
using testing::RawConnection;

class KeldSocketAcceptTest : public testing::KeldSocketTest {};

TEST_F(KeldSocketAcceptTest, ManyPeersAreServedAtOnce) {
  struct Echo : KeldaneSocketDelegate {
    bool processData(const Bytes* payload, std::int32_t type) override {
      const std::string text(payload->begin(), payload->end());
      const std::string frame = RawConnection::frame(type + 1, text + "!");
      return socket.lock()->sendBytes(frame.data(), static_cast<std::uint32_t>(frame.size()));
    }
    std::weak_ptr<KeldaneSocket> socket;
  };
  struct Server : KeldSocketDelegate {
    void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
      const auto echo = std::make_shared<Echo>();
      echo->socket = child;
      child->setDataDelegate(echo);
    }
  };
  const auto listener = KeldaneSocket::create();
  listener->setSocketDelegate(std::make_shared<Server>());
  ASSERT_TRUE(listener->listenAtPath(path_));
  struct Client {
    std::shared_ptr<KeldaneSocket> socket = KeldaneSocket::create();
    std::shared_ptr<DataDelegate> data = std::make_shared<DataDelegate>();
  };
  std::vector<Client> clients(20);
  for (std::size_t i = 0; i < clients.size(); ++i) {
    clients[i].socket->setDataDelegate(clients[i].data);
    ASSERT_TRUE(clients[i].socket->connectToPath(path_));
    const std::string frame = RawConnection::frame(1, std::to_string(i));
    clients[i].socket->sendBytes(frame.data(), static_cast<std::uint32_t>(frame.size()));
  }
  for (std::size_t i = 0; i < clients.size(); ++i) {
    ASSERT_TRUE(clients[i].data->waitFor(1));
    EXPECT_EQ(clients[i].data->all(), (Messages{{2, std::to_string(i) + "!"}}));
    clients[i].socket->close();
  }
  listener->close();
}

TEST_F(KeldSocketAcceptTest, DescriptorZeroIsNoPeer) {
  const auto listener = KeldaneSocket::create();
  listener->setSocketDelegate(delegate_);
  listener->setSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto first = KeldaneSocket::create();
  first->setSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const Descriptor standardInput(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  ::close(STDIN_FILENO);  // the number that the next peer gets
  ASSERT_TRUE(listener->listenAtPath(path_));
  ASSERT_TRUE(first->connectToPath(path_));
  EXPECT_TRUE(eventually([] { return fcntl(STDIN_FILENO, F_GETFD) != -1; })) << "it was accepted";
  socket_->setDataDelegate(data_);
  ASSERT_TRUE(socket_->connectToPath(path_));
  ASSERT_TRUE(eventually([&] { return delegate_->childCount() > 0; }));
  const std::string frame = RawConnection::frame(1, "to the second peer");
  delegate_->children[0]->sendBytes(frame.data(), static_cast<std::uint32_t>(frame.size()));
  EXPECT_TRUE(data_->waitFor(1)) << "the first child is that of the second peer";
  EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1) << "left open, and of no use";
  dup2(standardInput.get(), STDIN_FILENO);
  first->close();
  listener->close();
  delegate_->children.clear();
}

TEST_F(KeldSocketAcceptTest, WithoutAFreeDescriptorItWaitsForOne) {
  const auto listener = listen();
  socket_->setSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const int free = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  ::close(free);
  const rlimit none = {static_cast<rlim_t>(free), limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(socket_->connectToPath(path_));
  const std::clock_t before = std::clock();
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  const double busy = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_LT(busy, 0.2) << "seconds of the processor";
  EXPECT_TRUE(eventually([&] { return delegate_->childCount() == 1; }));
  listener->close();
  delegate_->children.clear();
}

TEST_F(KeldSocketAcceptTest, WhatADelegateThrowsAtANewChildGoesNoFurther) {
  struct Thrower : testing::SocketDelegate {
    void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
      SocketDelegate::socketCreated(child);
      throw 7;
    }
  };
  delegate_ = std::make_shared<Thrower>();
  const auto listener = listen();
  ASSERT_TRUE(socket_->connectToPath(path_));
  const auto second = KeldaneSocket::create();
  ASSERT_TRUE(second->connectToPath(path_));
  EXPECT_TRUE(eventually([&] { return delegate_->childCount() == 2; }));
  EXPECT_TRUE(eventually([&] { return delegate_->children[1]->isZombie(); })) << "nobody serves it";
  EXPECT_TRUE(delegate_->children[0]->isZombie());
  second->close();
  listener->close();
  delegate_->children.clear();
}

TEST_F(KeldSocketAcceptTest, MakesAChildForEachPeer) {
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

TEST_F(KeldSocketAcceptTest, DropsDeadChildrenWhenTheNextPeerComes) {
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

}  // namespace
}  // namespace keldane
