// The behaviour of a socket when the system has no thread to give.
#include <pthread.h>

#include "tests/Common/transport/KeldSocketFixture.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::RawConnection;

/// While this object lives, no thread can be started in this process, because there are no addresses for its
/// stack.
class NoNewThreads {
 public:
  NoNewThreads() {
    EXPECT_EQ(::pthread_getattr_default_np(&usual_), 0);
    pthread_attr_t impossible;
    EXPECT_EQ(::pthread_attr_init(&impossible), 0);
    EXPECT_EQ(::pthread_attr_setstacksize(&impossible, std::size_t{1} << 60), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&impossible), 0);
    ::pthread_attr_destroy(&impossible);
  }
  ~NoNewThreads() {
    EXPECT_EQ(::pthread_setattr_default_np(&usual_), 0);
    ::pthread_attr_destroy(&usual_);
  }
  NoNewThreads(const NoNewThreads&) = delete;
  NoNewThreads& operator=(const NoNewThreads&) = delete;

 private:
  pthread_attr_t usual_{};
};

class ThreadRefusalTest : public testing::KeldSocketTest {};

TEST_F(ThreadRefusalTest, WhatNobodyWouldReceiveIsNotConnectedToAndTheNextTryIsANewOne) {
  socket_->setDataDelegate(data_);
  {
    const NoNewThreads refused;
    EXPECT_FALSE(socket_->connectToPath(peer_.path()));
  }
  EXPECT_TRUE(log_.hasPart("KeldaneSocket cannot start a thread: "));
  EXPECT_TRUE(peer_.accept().isAtEnd());

  ASSERT_TRUE(socket_->connectToPath(peer_.path()));
  RawConnection peer = peer_.accept();
  peer.writeFrame(2, "answer");
  EXPECT_TRUE(data_->waitFor(1));
}

TEST_F(ThreadRefusalTest, WhereNobodyWouldAcceptNobodyListens) {
  const NoNewThreads refused;
  EXPECT_FALSE(socket_->listenAtPath(path_));
}

TEST_F(ThreadRefusalTest, APeerThatNobodyWouldReadIsTurnedAwayAndTheNextOneServed) {
  const std::shared_ptr<KeldaneSocket> listener = listen();
  {
    const NoNewThreads refused;
    EXPECT_TRUE(testing::connectedTo(path_).isAtEnd());
  }
  EXPECT_EQ(delegate_->childCount(), 0U);

  const RawConnection next = testing::connectedTo(path_);
  EXPECT_TRUE(eventually([&] { return delegate_->childCount() == 1; }));
  delegate_->children.at(0)->close();
  listener->close();
}

}  // namespace
}  // namespace keldane
