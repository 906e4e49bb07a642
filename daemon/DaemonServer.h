// The socket on which the daemon serves its clients.
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Common/KeldProxy.h"
#include "Common/KeldSocket.h"
#include "daemon/Daemon.h"
#include "daemon/DaemonService.h"
#include "platform/files/Descriptor.h"

namespace keldane {

/// What the daemon calls at clients that asked to be told: one-way, with the state dictionary.
extern const Protocol KeldaneClientProtocol;

/// Listens, and keeps one proxy for each accepted peer, which performs that peer's requests on its own
/// receive thread. One more thread tells those peers that want it about a changed state, at most once a
/// second. The mutex guards the peers and is a leaf: nothing is called while it is held.
class DaemonServer final : public KeldSocketDelegate, public std::enable_shared_from_this<DaemonServer> {
 public:
  DaemonServer(std::shared_ptr<Daemon> daemon, std::string socket)
      : daemon_(std::move(daemon)), path_(std::move(socket)) {}
  ~DaemonServer() override;
  DaemonServer(const DaemonServer&) = delete;
  DaemonServer& operator=(const DaemonServer&) = delete;

  /// Begins to serve. False and a sentence when the path cannot be had: another daemon serves it, something
  /// other than a socket is there, it is too long for an address. A socket that a dead daemon left is
  /// replaced.
  bool start(std::string* error);
  /// Closes every connection and removes the socket. Before the daemon goes.
  void stop();

  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override;
  void socketFailed(const std::shared_ptr<KeldaneSocket>& child) override;

 private:
  struct PeerLink {
    std::shared_ptr<KeldaneProxy> proxy;
    std::shared_ptr<DaemonService> service;
    bool wantsState = false;
  };

  bool claimPath(std::string* error);
  void subscribe(const KeldaneSocket* peer, bool on);
  void notify();
  bool waitForNextNotification();
  std::vector<std::shared_ptr<KeldaneProxy>> subscribers();

  const std::shared_ptr<Daemon> daemon_;
  const std::string path_;
  Descriptor lock_;  // held while this server has the path
  std::shared_ptr<KeldaneSocket> listener_;
  std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by mutex_:
  std::map<const KeldaneSocket*, std::pair<std::shared_ptr<KeldaneSocket>, PeerLink>> peers_;
  bool stopping_ = false;
  std::thread notifier_;
};

}  // namespace keldane
