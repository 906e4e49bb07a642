#include "daemon/server/DaemonServer.h"

#include <sys/resource.h>

#include <algorithm>

#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

// The descriptors that are reserved for everything but connections. If there are few descriptors, half of
// them are reserved.
constexpr std::size_t kOtherDescriptors = 64;

constexpr std::size_t kMostAlerts = 20;  // the limit of waiting alerts for one peer; the oldest are dropped

constexpr auto kNotificationInterval = std::chrono::seconds(1);

constexpr MethodSignature kClientMethods[] = {
    {"stateChanged:", 'v', "@"}, {"alertRaised:", 'v', "@"}, {"showRestoreWizard:", 'v', "@"}};

ServerLimits withinDescriptors(ServerLimits limits) {
  rlimit descriptors{};
  if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0 && descriptors.rlim_cur != RLIM_INFINITY) {
    const std::size_t most =
        descriptors.rlim_cur - std::min<std::size_t>(descriptors.rlim_cur / 2, kOtherDescriptors);
    limits.connections = std::min(limits.connections, most);
  }
  return limits;
}

}  // namespace

constinit const Protocol KeldaneClientProtocol = {"KeldaneClientProtocol", kClientMethods};

DaemonServer::~DaemonServer() { stop(); }

DaemonServer::DaemonServer(std::shared_ptr<Daemon> daemon, std::string socket, bool allowSharedFolder,
                           const ServerLimits& limits)
    : daemon_(std::move(daemon)),
      socket_(std::move(socket), allowSharedFolder),
      limits_(withinDescriptors(limits)),
      turns_(std::make_shared<WalkTurns>(limits.walks, limits.walksOfUser)),
      requests_(std::make_shared<ByteBudget>(limits.requestBytes)),
      answers_(std::make_shared<ByteBudget>(limits.answerBytes)) {}

bool DaemonServer::start(std::string* error) {
  if (!socket_.open(shared_from_this(), error)) {
    return false;
  }
  notifier_ = std::thread([this] { notify(); });
  daemon_->setAnnounce(
      [weak = weak_from_this()](const std::string& selector, const PropertyList& dictionary) {
        if (const std::shared_ptr<DaemonServer> self = weak.lock()) {
          self->keepAlert(selector, dictionary);
        }
      });
  return true;
}

void DaemonServer::stop() {
  if (!socket_.isOpen()) {
    return;
  }
  decltype(peers_) peers;
  {
    const ScopedLock guard(mutex_);
    stopping_ = true;
    peers.swap(peers_);
  }
  changed_.notifyAll();
  daemon_->setAnnounce({});
  turns_->end();
  socket_.close();
  for (auto& [key, peer] : peers) {
    peer.second.proxy->close();
    peer.first->close();
  }
  if (notifier_.joinable()) {
    notifier_.join();
  }
}

bool DaemonServer::socketAccepted(const std::shared_ptr<KeldaneSocket>& child) {
  const std::optional<PeerCredentials> credentials = child->peerCredentials();
  accepted_ = credentials ? shareFor(credentials->uid) : nullptr;
  if (!accepted_) {
    return false;
  }
  child->setLimits(limits_.ofPeer(accepted_->requests, accepted_->answers));
  return true;
}

void DaemonServer::socketCreated(const std::shared_ptr<KeldaneSocket>& child) {
  const std::shared_ptr<UserShare> share = std::move(accepted_);
  const std::optional<PeerCredentials> credentials = child->peerCredentials();
  if (!credentials) {
    child->close();
    return;
  }
  const KeldaneSocket* key = child.get();
  PeerLink link;
  link.share = share;
  link.service = std::make_shared<DaemonService>(
      daemon_, PeerAccess(peerOf(credentials->uid, credentials->gid)), share,
      [weak = weak_from_this(), key](DaemonService::Subject subject, bool on) {
        if (const std::shared_ptr<DaemonServer> self = weak.lock()) {
          self->subscribe(key, subject, on);
        }
      });
  link.proxy = KeldaneProxy::create();
  link.proxy->setProtocol(&KeldaneClientProtocol);
  link.proxy->setDelegate(link.service);
  const std::shared_ptr<KeldaneProxy> proxy = link.proxy;
  {
    const ScopedLock guard(mutex_);
    if (stopping_) {
      return;
    }
    peers_.insert_or_assign(key, std::pair(child, std::move(link)));
  }
  child->setSocketDelegate(shared_from_this());
  proxy->setSocket(child);  // the peer's messages are received from here on
}

// Only the accept thread calls this, so the peers that are counted here do not change before the new one is
// added above.
std::shared_ptr<UserShare> DaemonServer::shareFor(uid_t user) {
  const ScopedLock guard(mutex_);
  std::shared_ptr<UserShare> share = shares_[user].lock();
  const auto ofUser = std::count_if(peers_.begin(), peers_.end(),
                                    [&](const auto& peer) { return peer.second.second.share == share; });
  if (peers_.size() >= limits_.connections || static_cast<std::size_t>(ofUser) >= limits_.connectionsOfUser) {
    return nullptr;
  }
  if (!share) {
    std::erase_if(shares_, [](const auto& entry) { return entry.second.expired(); });
    share = std::make_shared<UserShare>(turns_, limits_.requestBytesOfUser, requests_,
                                        limits_.answerBytesOfUser, answers_);
    shares_[user] = share;
  }
  return share;
}

void DaemonServer::socketFailed(const std::shared_ptr<KeldaneSocket>& child) {
  std::pair<std::shared_ptr<KeldaneSocket>, PeerLink> gone;
  {
    const ScopedLock guard(mutex_);
    const auto found = peers_.find(child.get());
    if (found == peers_.end()) {
      return;
    }
    gone = std::move(found->second);
    peers_.erase(found);
  }
  gone.second.proxy->close();
  child->close();
}

void DaemonServer::subscribe(const KeldaneSocket* peer, DaemonService::Subject subject, bool on) {
  const ScopedLock guard(mutex_);
  const auto found = peers_.find(peer);
  if (found == peers_.end()) {
    return;
  }
  PeerLink& link = found->second.second;
  if (subject == DaemonService::Subject::alerts) {
    link.wantsAlerts = on;
    link.alerts.clear();
  } else {
    link.wantsState = on;
    link.told = {};
  }
}

// Alerts name no file, so every peer may receive them. A window that a user asks for is shown to that user
// only.
void DaemonServer::keepAlert(const std::string& selector, const PropertyList& dictionary) {
  const PropertyList user = dictionary["user"];
  {
    const ScopedLock guard(mutex_);
    for (auto& [key, peer] : peers_) {
      PeerLink& link = peer.second;
      if (!link.wantsAlerts || (user && link.service->access().peer().uid != user.unsignedIntValue())) {
        continue;
      }
      if (link.alerts.size() >= kMostAlerts) {
        link.alerts.pop_front();
      }
      link.alerts.emplace_back(selector, dictionary);
      isAlertNew_ = true;
    }
  }
  changed_.notifyAll();
}

// A peer that is busy or reads nothing is told later.
void DaemonServer::tellAlerts() {
  for (;;) {
    std::vector<std::pair<const KeldaneSocket*, std::shared_ptr<KeldaneProxy>>> toTell;
    std::vector<std::pair<std::string, PropertyList>> alerts;
    {
      const ScopedLock guard(mutex_);
      for (const auto& [key, peer] : peers_) {
        if (!peer.second.alerts.empty()) {
          toTell.emplace_back(key, peer.second.proxy);
          alerts.push_back(peer.second.alerts.front());
        }
      }
    }
    bool anyTold = false;
    for (std::size_t i = 0; i < toTell.size(); ++i) {
      const auto& [key, proxy] = toTell[i];
      if (!proxy->callWithoutWaiting(alerts[i].first, {RawValue::of<'@'>(alerts[i].second)})) {
        continue;
      }
      anyTold = true;
      const ScopedLock guard(mutex_);
      const auto peer = peers_.find(key);
      if (peer != peers_.end() && peer->second.second.proxy == proxy && !peer->second.second.alerts.empty()) {
        peer->second.second.alerts.pop_front();
      }
    }
    if (!anyTold) {
      return;
    }
  }
}

void DaemonServer::notify() {
  for (;;) {
    {
      const ScopedLock guard(mutex_);
      changed_.waitFor(mutex_, kNotificationInterval,
                       [this]() KELDANE_REQUIRES(mutex_) { return stopping_ || isAlertNew_; });
      if (stopping_) {
        return;
      }
      isAlertNew_ = false;
    }
    try {
      tellAlerts();
      tellState();
    } catch (const std::exception& error) {
      systemLog("Clients cannot be told what is new: %s", error.what());
    }
  }
}

// A peer that is busy or reads nothing is told later, so that the others need not wait for it.
void DaemonServer::tellState() {
  std::map<const KeldaneSocket*, PeerLink> toTell;
  {
    const ScopedLock guard(mutex_);
    for (const auto& [key, peer] : peers_) {
      if (peer.second.wantsState) {
        toTell.emplace(key, peer.second);
      }
    }
  }
  std::map<uid_t, PropertyList> states;
  for (const auto& [key, link] : toTell) {
    PropertyList& state = states[link.service->access().peer().uid];
    if (!state) {
      state = daemon_->state(link.service->access());
    }
    if (state != link.told && link.proxy->callWithoutWaiting("stateChanged:", {RawValue::of<'@'>(state)})) {
      const ScopedLock guard(mutex_);
      const auto peer = peers_.find(key);
      if (peer != peers_.end() && peer->second.second.proxy == link.proxy) {
        peer->second.second.told = state;
      }
    }
  }
}

}  // namespace keldane
