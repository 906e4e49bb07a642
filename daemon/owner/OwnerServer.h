// The socket on which the daemon serves its own user and root.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Common/calls/KeldProxy.h"
#include "Common/transport/KeldSocket.h"
#include "daemon/owner/OwnerRequests.h"
#include "daemon/server/socket/ServerLimits.h"
#include "daemon/server/socket/ServerSocket.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Listens beside the first socket with mode 0600, turns every peer away that is neither the daemon's user
/// nor root, and performs each peer's requests on that peer's receive thread, one at a time. The mutex guards
/// the peers and is a leaf: nothing is called while it is held.
class OwnerServer final : public KeldSocketDelegate, public std::enable_shared_from_this<OwnerServer> {
 public:
  /// The limit of connections at a time. A further one is closed at once.
  static constexpr std::size_t kMostPeers = 64;

  /// `socket` is the path of the first socket; this one's is `ownerSocketPath(socket)`. Only the limits
  /// on the size and the time of a message apply.
  OwnerServer(std::shared_ptr<OwnerRequests> requests, const std::string& socket,
              bool allowSharedFolder = false, const ServerLimits& limits = {});
  ~OwnerServer() override;
  OwnerServer(const OwnerServer&) = delete;
  OwnerServer& operator=(const OwnerServer&) = delete;

  /// Begins to serve. False and a sentence when the socket cannot be opened.
  bool start(std::string* error);
  /// Closes every connection and removes the socket. A request that is being performed goes on and keeps
  /// `requests` until it is done; nobody gets its answer.
  void stop();

  bool socketAccepted(const std::shared_ptr<KeldaneSocket>& child) override;
  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override;
  void socketFailed(const std::shared_ptr<KeldaneSocket>& child) override;

 private:
  struct PeerLink {
    std::shared_ptr<KeldaneSocket> socket;
    std::shared_ptr<KeldaneProxy> proxy;
    std::shared_ptr<InvocationTarget> service;
    void close() const;
  };

  const std::shared_ptr<OwnerRequests> requests_;
  ServerSocket socket_;
  const ServerLimits limits_;
  const std::shared_ptr<ByteBudget> received_, unread_;
  Mutex mutex_;
  std::map<const KeldaneSocket*, PeerLink> peers_ KELDANE_GUARDED_BY(mutex_);
  bool stopping_ KELDANE_GUARDED_BY(mutex_) = false;
};

}  // namespace keldane
