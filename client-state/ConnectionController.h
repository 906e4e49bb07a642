// The one connection between a client and the backup daemon.
#pragma once

#include <memory>

#include "Common/calls/KeldProxy.h"
#include "Common/transport/KeldSocket.h"
#include "platform/bundle/Bundle.h"
#include "platform/runloop/RunLoop.h"

extern "C" {
/// Sent by the controller after each change of its connected state.
extern const char KeldaneConnectionReadyChangedNotification[];
}

namespace keldane {

/// Opens the link to the daemon at once, retries every second while the daemon cannot be reached, takes the
/// link down when it fails, and announces each change. BackupState owns it. The socket retains it too until
/// the link is closed, so the owner calls `stop` before it releases the controller. All calls come on the
/// thread that calls `start`, normally the main thread; it takes no locks.
class ConnectionController final : public KeldSocketDelegate,
                                   public std::enable_shared_from_this<ConnectionController> {
 public:
  /// `proxyDelegate` receives the daemon's calls; not owned.
  static std::shared_ptr<ConnectionController> initWithProxyDelegate(
      std::weak_ptr<InvocationTarget> proxyDelegate);
  ~ConnectionController() override;
  ConnectionController(const ConnectionController&) = delete;
  ConnectionController& operator=(const ConnectionController&) = delete;

  /// Sets the bundle whose "DaemonPath" names the daemon's socket. The default is the process's main bundle.
  /// To be called before `start`.
  void setBundle(std::shared_ptr<Bundle> bundle) { bundle_ = std::move(bundle); }
  /// Makes `start` try once without a timer. A link that was up and is lost is still retried every second.
  void disableConnectTimer() { disableConnectTimer_ = true; }
  /// The first attempt is made before this returns.
  void start();
  /// Announces the change also when there never was a connection.
  void stop();
  bool connected() const { return connected_; }
  /// Null before the first attempt and after `stop`. After a failed attempt there is a proxy, but its calls
  /// reach nobody.
  const std::shared_ptr<KeldaneProxy>& proxy() const { return proxy_; }

  void socketConnected(const std::shared_ptr<KeldaneSocket>& socket) override;
  void socketFailed(const std::shared_ptr<KeldaneSocket>& socket) override;

 private:
  explicit ConnectionController(std::weak_ptr<InvocationTarget> proxyDelegate)
      : proxyDelegate_(std::move(proxyDelegate)), bundle_(Bundle::mainBundle()) {}
  void connectTimer();
  void closeSocket();
  void startConnectTimer();
  void stopConnectTimer();

  std::shared_ptr<KeldaneSocket> socket_;
  std::shared_ptr<KeldaneProxy> proxy_;
  std::weak_ptr<InvocationTarget> proxyDelegate_;
  bool connected_ = false;
  bool disableConnectTimer_ = false;
  std::shared_ptr<Timer> connectTimer_;
  std::shared_ptr<Bundle> bundle_;
};

}  // namespace keldane
