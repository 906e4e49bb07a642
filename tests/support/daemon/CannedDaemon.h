// A daemon that answers at once, with the same node for every path. So a measurement shows the cost of
// asking.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "Common/calls/KeldProxy.h"
#include "Common/transport/KeldSocket.h"
#include "platform/objects/Absent.h"

namespace keldane::testing {

/// Listens at a path. Clients are served on the receive threads of their sockets, as the real daemon does it.
class CannedDaemon final : public KeldSocketDelegate,
                           public InvocationTarget,
                           public std::enable_shared_from_this<CannedDaemon> {
 public:
  static std::shared_ptr<CannedDaemon> listen(const std::string& path, const PropertyList& node) {
    const std::shared_ptr<CannedDaemon> daemon(new CannedDaemon(node));
    daemon->listener_->setSocketDelegate(daemon);
    return daemon->listener_->listenAtPath(path) ? daemon : nullptr;
  }

  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
    const std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
    proxy->setDelegate(weak_from_this());
    {
      const std::lock_guard guard(mutex_);
      proxies_[child.get()] = proxy;
    }
    child->setSocketDelegate(shared_from_this());
    proxy->setSocket(child);
  }
  void socketFailed(const std::shared_ptr<KeldaneSocket>& child) override {
    std::shared_ptr<KeldaneProxy> proxy;
    {
      const std::lock_guard guard(mutex_);
      proxy = std::exchange(proxies_[child.get()], nullptr);
      proxies_.erase(child.get());
    }
    sendTo(proxy, &KeldaneProxy::close);
    child->close();
  }

  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    return KeldaneDaemonProtocol.find(selector);
  }
  void invoke(Invocation& invocation) override {
    if (invocation.signature.returnCode == '@') {
      invocation.result = RawValue::of<'@'>(node_);
    }
  }

 private:
  explicit CannedDaemon(PropertyList node) : node_(std::move(node)) {}

  const PropertyList node_;
  std::mutex mutex_;  // a leaf
  std::map<const KeldaneSocket*, std::shared_ptr<KeldaneProxy>> proxies_;
  const std::shared_ptr<KeldaneSocket> listener_ = KeldaneSocket::create();
};

}  // namespace keldane::testing
