#include "client-state/ConnectionController.h"

#include <csignal>

#include "log/KeldaneLog.h"
#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Absent.h"

extern "C" {
const char KeldaneConnectionReadyChangedNotification[] = "KeldaneConnectionReadyChangedNotification";
}

namespace keldane {

namespace {

constexpr RunLoop::Seconds kRetryInterval{1.0};

}  // namespace

std::shared_ptr<ConnectionController> ConnectionController::initWithProxyDelegate(
    std::weak_ptr<InvocationTarget> proxyDelegate) {
  return std::shared_ptr<ConnectionController>(new ConnectionController(std::move(proxyDelegate)));
}

ConnectionController::~ConnectionController() { stopConnectTimer(); }

void ConnectionController::start() {
  KeldaneCLog("ConnectionController:start()");
  if (disableConnectTimer_) {
    KeldaneCLog("ConnectionController:start - trying to connect immediately");
  } else {
    startConnectTimer();
  }
  // The first attempt is made at once in either case, though only one of them logs it.
  connectTimer();
}

void ConnectionController::stop() { closeSocket(); }

void ConnectionController::startConnectTimer() {
  connectTimer_ = RunLoop::current().scheduleTimer(kRetryInterval, true, [weak = weak_from_this()](Timer&) {
    sendTo(weak.lock(), &ConnectionController::connectTimer);
  });
}

void ConnectionController::stopConnectTimer() {
  sendTo(connectTimer_, &Timer::invalidate);
  connectTimer_.reset();
}

void ConnectionController::connectTimer() {
  if (!socket_) {
    std::signal(SIGPIPE, SIG_IGN);  // a write to a link that the daemon has closed must not end the host
    socket_ = KeldaneSocket::create();
    socket_->setCallDelegateOnMainThread(true);
    socket_->setSocketDelegate(shared_from_this());
  }
  if (!proxy_) {
    proxy_ = KeldaneProxy::create();
    proxy_->setSocket(socket_);
    proxy_->setProtocol(&KeldaneDaemonProtocol);
    proxy_->setCallDelegateOnMainThread(true);
    proxy_->setDelegate(proxyDelegate_);
  }
  const PropertyList path =
      sendTo(bundle_, [](const Bundle& bundle) { return bundle.objectForInfoDictionaryKey("DaemonPath"); });
  if (!socket_->connectToPath(path.isString() ? std::optional(std::string(path.string())) : std::nullopt)) {
    KeldaneCLog("ConnectionController: unable to connect to daemon, will try again...");
    return;
  }
  KeldaneCLog("ConnectionController: connected");
  stopConnectTimer();
  connected_ = true;
  NotificationCenter::defaultCenter().post(KeldaneConnectionReadyChangedNotification, this);
}

void ConnectionController::closeSocket() {
  // The socket may hold the last reference to this object.
  const std::shared_ptr<ConnectionController> self = shared_from_this();
  connected_ = false;
  stopConnectTimer();
  sendTo(proxy_, &KeldaneProxy::close);
  proxy_.reset();
  sendTo(socket_, &KeldaneSocket::close);
  socket_.reset();
  NotificationCenter::defaultCenter().post(KeldaneConnectionReadyChangedNotification, this);
}

void ConnectionController::socketConnected(const std::shared_ptr<KeldaneSocket>& /*socket*/) {
  // Nothing to do: `connectToPath` has already returned true.
  KeldaneCLog("ConnectionController::socketConnected:");
}

void ConnectionController::socketFailed(const std::shared_ptr<KeldaneSocket>& /*socket*/) {
  KeldaneCLog("ConnectionController::socketFailed:");
  closeSocket();
  // disableConnectTimer only concerns the start: a connection that was lost is always retried. This is kept
  // on purpose.
  startConnectTimer();
}

}  // namespace keldane
