// A socket with recording delegates, and a peer for it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Common/transport/KeldSocket.h"
#include "log/KeldaneLog.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"
#include "tests/support/process/RawPeer.h"

namespace keldane::testing {

struct SocketDelegate : KeldSocketDelegate {
  void socketConnected(const std::shared_ptr<KeldaneSocket>&) override { ++connected; }
  void socketFailed(const std::shared_ptr<KeldaneSocket>& socket) override {
    ++failed;
    failedThread = std::this_thread::get_id();
    if (closesOnFailure) {
      socket->close();
    }
  }
  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
    const std::lock_guard guard(mutex);
    children.push_back(child);
  }
  std::size_t childCount() {
    const std::lock_guard guard(mutex);
    return children.size();
  }
  std::atomic<int> connected = 0, failed = 0;
  std::atomic<std::thread::id> failedThread;
  std::atomic<bool> closesOnFailure = false;
  std::mutex mutex;
  std::vector<std::shared_ptr<KeldaneSocket>> children;
};

/// The type and the payload; "(none)" for an absent payload.
using Message = std::pair<std::int32_t, std::string>;
using Messages = std::vector<Message>;

struct DataDelegate : KeldaneSocketDelegate {
  bool processData(const Bytes* payload, std::int32_t type) override {
    {
      const std::lock_guard guard(mutex);
      messages.emplace_back(type,
                            payload == nullptr ? "(none)" : std::string(payload->begin(), payload->end()));
    }
    if (onMessage) {
      onMessage();
    }
    return true;
  }
  void socketClosing() override { closing = true; }
  Messages all() {
    const std::lock_guard guard(mutex);
    return messages;
  }
  bool waitFor(std::size_t count) {
    return eventually([&] { return all().size() >= count; });
  }
  std::mutex mutex;
  Messages messages;
  std::function<void()> onMessage;  // set before there are messages
  std::atomic<bool> closing = false;
};

class KeldSocketTest : public ::testing::Test {
 protected:
  KeldSocketTest() { gLoggingEnabled = true; }
  ~KeldSocketTest() override {
    socket_->close();
    // The receive thread leaves by itself. A test must not end before that.
    EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
  }
  RawConnection connect() {
    socket_->setSocketDelegate(delegate_);
    socket_->setDataDelegate(data_);
    EXPECT_TRUE(socket_->connectToPath(peer_.path()));
    return peer_.accept();
  }
  std::shared_ptr<KeldaneSocket> listen() {
    const auto listener = KeldaneSocket::create();
    listener->setSocketDelegate(delegate_);
    EXPECT_TRUE(listener->listenAtPath(path_));
    return listener;
  }

  LogCapture log_;
  RawPeer peer_;
  TemporaryFolder folder_;
  const std::string path_ = folder_ / "listener.sock";
  std::shared_ptr<KeldaneSocket> socket_ = KeldaneSocket::create();
  std::shared_ptr<SocketDelegate> delegate_ = std::make_shared<SocketDelegate>();
  std::shared_ptr<DataDelegate> data_ = std::make_shared<DataDelegate>();
};

}  // namespace keldane::testing
