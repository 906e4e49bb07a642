// A client of the daemon that consists of its link only.
#pragma once

#include <memory>
#include <string>

#include "Common/calls/KeldProxy.h"

namespace keldane::testing {

/// A separate client, like any other program's.
class Client {
 public:
  /// Calls are answered only when it is connected.
  explicit Client(const std::string& path) {
    proxy_->setSocket(socket_);
    proxy_->setProtocol(&KeldaneDaemonProtocol);
    connected_ = socket_->connectToPath(path);
  }
  ~Client() {
    proxy_->close();
    socket_->close();
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  KeldaneProxy* operator->() { return proxy_.get(); }
  KeldaneProxy& proxy() { return *proxy_; }
  bool connected() const { return connected_; }

 private:
  std::shared_ptr<KeldaneSocket> socket_ = KeldaneSocket::create();
  std::shared_ptr<KeldaneProxy> proxy_ = KeldaneProxy::create();
  bool connected_ = false;
};

}  // namespace keldane::testing
