#include "clients/ctl/Session.h"

#include <iostream>
#include <sstream>

#include "clients/core/DaemonBundle.h"

namespace keldane {

void complain(const std::string& sentence) { std::cerr << "keldanectl: " << sentence << std::endl; }

Session::Session(const Globals& globals) : seconds_(globals.deadline) {
  try {
    const DaemonBundle found = findDaemonBundle(globals.bundle);
    socketPath_ = found.socketPath;
    state_.setBundle(found.bundle);
  } catch (const NoDaemonBundle& nothing) {
    throw CommandFailure(kUnreachable, nothing.what());
  }
}

bool Session::connect() {
  std::ostringstream late;
  late << "keldanectl: The backup daemon at " << socketPath_ << " has not answered for " << seconds_
       << " seconds.";
  deadline_ = std::make_unique<Deadline>(seconds_, late.str(), kDeadlinePassed);
  state_.disableConnectTimer();
  state_.onBegin();
  return state_.connected();
}

void Session::requireDaemon() {
  if (!connect()) {
    throw unreachable();
  }
}

void Session::checkDaemon() {
  RunLoop::current().runDue();
  // The end of the link is queued to this thread a moment after the call that waited was let go.
  const std::shared_ptr<KeldaneProxy> link = proxy();
  if (!link || link->isLinkAtEnd()) {
    throw unreachable();
  }
}

CommandFailure Session::unreachable() const {
  return {kUnreachable, "The backup daemon cannot be reached at " + socketPath_ + "."};
}

}  // namespace keldane
