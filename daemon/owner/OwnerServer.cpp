#include "daemon/owner/OwnerServer.h"

#include <utility>

#include "Common/calls/OwnerProtocol.h"
#include "daemon/owner/OwnerService.h"
#include "daemon/server/Permissions.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr mode_t kOwnerSocketMode = 0600;

// The daemon asks its peers nothing here, so a proxy drops an answer that nobody waits for.
constinit const Protocol kNothingToAsk = {"KeldaneOwnerClientProtocol", {}};

}  // namespace

void OwnerServer::PeerLink::close() const {
  proxy->close();
  socket->close();
}

OwnerServer::OwnerServer(std::shared_ptr<OwnerRequests> requests, const std::string& socket,
                         bool allowSharedFolder, const ServerLimits& limits)
    : requests_(std::move(requests)),
      socket_(ownerSocketPath(socket), allowSharedFolder),
      limits_(limits),
      received_(std::make_shared<ByteBudget>(limits.requestBytesOfUser)),
      unread_(std::make_shared<ByteBudget>(limits.answerBytesOfUser)) {}

OwnerServer::~OwnerServer() { stop(); }

bool OwnerServer::start(std::string* error) {
  return socket_.open(shared_from_this(), error, kOwnerSocketMode);
}

void OwnerServer::stop() {
  if (!socket_.isOpen()) {
    return;
  }
  decltype(peers_) peers;
  {
    const ScopedLock guard(mutex_);
    stopping_ = true;
    peers.swap(peers_);
  }
  socket_.close();
  for (const auto& [key, peer] : peers) {
    peer.close();
  }
}

// The mode of the socket keeps others away already. This check also works when somebody has widened the mode.
bool OwnerServer::socketAccepted(const std::shared_ptr<KeldaneSocket>& child) {
  const std::optional<PeerCredentials> credentials = child->peerCredentials();
  if (!credentials || !isPrivileged({credentials->uid, credentials->gid, {}})) {
    systemLog("uid %u was turned away from %@", credentials ? credentials->uid : uid_t(-1), socket_.path());
    return false;
  }
  {
    const ScopedLock guard(mutex_);
    if (peers_.size() >= kMostPeers) {
      return false;
    }
  }
  child->setLimits(limits_.ofPeer(received_, unread_));
  return true;
}

void OwnerServer::socketCreated(const std::shared_ptr<KeldaneSocket>& child) {
  PeerLink link{child, KeldaneProxy::create(), std::make_shared<OwnerService>(requests_)};
  link.proxy->setProtocol(&kNothingToAsk);
  link.proxy->setDelegate(link.service);
  const std::shared_ptr<KeldaneProxy> proxy = link.proxy;
  {
    const ScopedLock guard(mutex_);
    if (stopping_) {
      return;
    }
    peers_.insert_or_assign(child.get(), std::move(link));
  }
  child->setSocketDelegate(shared_from_this());
  proxy->setSocket(child);  // the peer's messages are received from here on
}

void OwnerServer::socketFailed(const std::shared_ptr<KeldaneSocket>& child) {
  PeerLink gone;
  {
    const ScopedLock guard(mutex_);
    const auto found = peers_.find(child.get());
    if (found == peers_.end()) {
      return;
    }
    gone = std::move(found->second);
    peers_.erase(found);
  }
  gone.close();
}

}  // namespace keldane
