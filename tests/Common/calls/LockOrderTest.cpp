// Tests that the order of the transport's locks is recorded where that is built in. All other tests show that
// the order is kept, because a breach would end them.
#include <gmock/gmock.h>

#include "Common/calls/KeldProxy.h"
#include "platform/threads/LockOrder.h"
#include "tests/Common/transport/KeldSocketFixture.h"

namespace keldane {
namespace {

#if defined(KELDANE_LOCK_ORDER)

using ::testing::Contains;
using ::testing::IsEmpty;

class TransportLockOrderTest : public testing::KeldSocketTest {
 protected:
  TransportLockOrderTest() {
    LockOrder::setListener([this](const std::string& finding) {
      const std::lock_guard guard(mutex_);
      findings_.push_back(finding);
    });
  }
  ~TransportLockOrderTest() override { LockOrder::setListener({}); }
  std::vector<std::string> findings() {
    const std::lock_guard guard(mutex_);
    return findings_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> findings_;
};

/// Runs a function when it is replaced. It is told of that with the socket's monitor held.
struct Replaced : KeldSocketDelegate {
  explicit Replaced(std::function<void()> does) : whenReplaced(std::move(does)) {}
  void socketFailed(const std::shared_ptr<KeldaneSocket>&) override { whenReplaced(); }
  std::function<void()> whenReplaced;
};

TEST_F(TransportLockOrderTest, TheDataDelegatesLockComesBeforeTheMonitor) {
  socket_->setSocketDelegate(std::make_shared<Replaced>([this] { socket_->setDataDelegate(data_); }));
  EXPECT_THAT(findings(), IsEmpty());
  socket_->setSocketDelegate(delegate_);
  EXPECT_THAT(findings(),
              Contains("A thread that holds KeldaneSocket.monitor takes KeldaneSocket.dataDelegateLock, but\n"
                       "  KeldaneSocket.dataDelegateLock is stated to come before KeldaneSocket.monitor"));
}

TEST_F(TransportLockOrderTest, NobodyWaitsForAnAnswerWithAMonitorHeld) {
  const auto proxy = KeldaneProxy::create();
  proxy->setSocket(socket_);
  proxy->setProtocol(&KeldaneDaemonProtocol);
  ASSERT_TRUE(socket_->connectToPath(peer_.path()));
  testing::RawConnection peer = peer_.accept();
  peer.answer(1);
  peer.answer(2);
  EXPECT_EQ(proxy->pausedMinutes(), 1U);
  EXPECT_THAT(findings(), IsEmpty());
  const auto other = KeldaneSocket::create();
  other->setSocketDelegate(std::make_shared<Replaced>([&] { EXPECT_EQ(proxy->pausedMinutes(), 2U); }));
  other->setSocketDelegate(delegate_);
  EXPECT_THAT(findings(), Contains("A thread waits for a condition of KeldaneProxy.resultCond while it holds "
                                   "KeldaneSocket.monitor"));
  other->close();
  proxy->close();
}

#endif

}  // namespace
}  // namespace keldane
