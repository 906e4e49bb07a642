// The link to the daemon's second socket, for programs of its own user and root.
#pragma once

#include <memory>
#include <string>

#include "Common/calls/KeldProxy.h"
#include "Common/calls/OwnerProtocol.h"
#include "Common/transport/KeldSocket.h"

namespace keldane {

/// One connection, with a call for each method of the second socket. A call waits for its answer without a
/// time limit; the answer is absent when the link has ended. Used on one thread.
class OwnerLink final : public OwnerCalls<OwnerLink> {
 public:
  /// `socketPath` is the path of the first socket.
  explicit OwnerLink(const std::string& socketPath) : path_(ownerSocketPath(socketPath)) {}
  ~OwnerLink() { close(); }
  OwnerLink(const OwnerLink&) = delete;
  OwnerLink& operator=(const OwnerLink&) = delete;

  const std::string& path() const { return path_; }
  /// Connects, once. Returns false when nobody listens there, or not for this user.
  bool connect();
  bool isAtEnd() const { return !proxy_ || proxy_->isLinkAtEnd(); }
  void close();

  /// Throws InvalidArgument for a selector that is not in the table.
  RawValue call(std::string_view selector, Arguments arguments);

 private:
  const std::string path_;
  std::shared_ptr<KeldaneSocket> socket_;
  std::shared_ptr<KeldaneProxy> proxy_;
};

}  // namespace keldane
