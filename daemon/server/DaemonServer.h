// The socket on which the daemon serves its clients.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Common/calls/KeldProxy.h"
#include "Common/transport/KeldSocket.h"
#include "daemon/Daemon.h"
#include "daemon/server/DaemonService.h"
#include "daemon/server/socket/ServerLimits.h"
#include "daemon/server/socket/ServerSocket.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The methods of clients that the daemon calls after they asked for it. They return nothing: `stateChanged:`
/// with the state dictionary; `alertRaised:` with "kind" and "text"; `showRestoreWizard:` with the "user" who
/// asks for the restore window.
extern const Protocol KeldaneClientProtocol;

/// Listens, and keeps one proxy for each accepted peer. The proxy performs the peer's requests on the peer's
/// receive thread, one at a time. One more thread tells interested peers about a changed state, at most once
/// a second, and waits for none of them. A connection beyond the limits is closed at once. The mutex guards
/// the peers and is a leaf: nothing is called while it is held.
class DaemonServer final : public KeldSocketDelegate, public std::enable_shared_from_this<DaemonServer> {
 public:
  DaemonServer(std::shared_ptr<Daemon> daemon, std::string socket, bool allowSharedFolder = false,
               const ServerLimits& limits = {});
  ~DaemonServer() override;
  DaemonServer(const DaemonServer&) = delete;
  DaemonServer& operator=(const DaemonServer&) = delete;

  /// Begins to serve. False and a sentence when the socket cannot be opened.
  bool start(std::string* error);
  /// Closes every connection and removes the socket. Called before the daemon is destroyed.
  void stop();

  bool socketAccepted(const std::shared_ptr<KeldaneSocket>& child) override;
  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override;
  void socketFailed(const std::shared_ptr<KeldaneSocket>& child) override;

 private:
  struct PeerLink {
    std::shared_ptr<KeldaneProxy> proxy;
    std::shared_ptr<DaemonService> service;
    std::shared_ptr<UserShare> share;
    bool wantsState = false, wantsAlerts = false;
    PropertyList told;                                        // the state that it was told last
    std::deque<std::pair<std::string, PropertyList>> alerts;  // the alerts that it has not been told yet
  };

  /// The share of a user; null when there are too many connections.
  std::shared_ptr<UserShare> shareFor(uid_t user);
  void subscribe(const KeldaneSocket* peer, DaemonService::Subject subject, bool on);
  void keepAlert(const std::string& selector, const PropertyList& dictionary);
  void notify();
  void tellState();
  void tellAlerts();

  const std::shared_ptr<Daemon> daemon_;
  ServerSocket socket_;
  const ServerLimits limits_;
  const std::shared_ptr<WalkTurns> turns_;
  const std::shared_ptr<ByteBudget> requests_, answers_;
  std::shared_ptr<UserShare> accepted_;  // the share of the peer that is being accepted; accept thread only
  Mutex mutex_{{.name = "DaemonServer.mutex", .leaf = true}};
  Condition changed_;
  std::map<const KeldaneSocket*, std::pair<std::shared_ptr<KeldaneSocket>, PeerLink>> peers_
      KELDANE_GUARDED_BY(mutex_);
  std::map<uid_t, std::weak_ptr<UserShare>> shares_ KELDANE_GUARDED_BY(mutex_);
  bool stopping_ KELDANE_GUARDED_BY(mutex_) = false;
  // There is an alert that no attempt was made to tell.
  bool isAlertNew_ KELDANE_GUARDED_BY(mutex_) = false;
  std::thread notifier_;
};

}  // namespace keldane
