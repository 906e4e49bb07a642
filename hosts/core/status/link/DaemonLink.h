// The status core's own connection to the daemon.
#pragma once

#include <memory>
#include <string>

#include "Common/calls/KeldProxy.h"

namespace keldane {

/// One connection to the daemon, with a call for each of the daemon's methods. A call waits for its answer
/// without a time limit. Its result is absent when the link has ended. Used on one thread, which is never the
/// window's thread.
class DaemonLink final : public DaemonCalls<DaemonLink> {
 public:
  DaemonLink() = default;
  ~DaemonLink() { close(); }
  DaemonLink(const DaemonLink&) = delete;
  DaemonLink& operator=(const DaemonLink&) = delete;

  /// To be called once, or again after `close`. False when nobody listens there.
  bool connect(const std::string& socketPath);
  /// True also before `connect`.
  bool isAtEnd() const { return !proxy_ || proxy_->isLinkAtEnd(); }
  void close();

  RawValue call(std::string_view selector, Arguments arguments);

 private:
  std::shared_ptr<KeldaneSocket> socket_;
  std::shared_ptr<KeldaneProxy> proxy_;
};

/// The path of the daemon's socket that the installed plug-in's bundle names. Empty when no bundle is
/// installed.
std::string installedDaemonPath();

}  // namespace keldane
