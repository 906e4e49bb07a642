// The status core's own connection to the daemon.
#pragma once

#include <memory>
#include <string>

#include "Common/calls/KeldProxy.h"

namespace keldane {

/// One connection, with a call for each method of the daemon. A call waits, without a time limit, for its
/// answer and is absent when the link has ended. One thread, which is never the window's.
class DaemonLink final : public DaemonCalls<DaemonLink> {
 public:
  DaemonLink() = default;
  ~DaemonLink() { close(); }
  DaemonLink(const DaemonLink&) = delete;
  DaemonLink& operator=(const DaemonLink&) = delete;

  /// Once. False when nobody listens there.
  bool connect(const std::string& socketPath);
  /// True also before `connect`.
  bool isAtEnd() const { return !proxy_ || proxy_->isLinkAtEnd(); }
  void close();

  RawValue call(std::string_view selector, Arguments arguments);

 private:
  std::shared_ptr<KeldaneSocket> socket_;
  std::shared_ptr<KeldaneProxy> proxy_;
};

/// The daemon's socket as the installed plug-in's bundle names it; empty when there is none.
std::string installedDaemonPath();

}  // namespace keldane
