#include "clients/core/OwnerLink.h"

#include <csignal>

namespace keldane {

bool OwnerLink::connect() {
  std::signal(SIGPIPE, SIG_IGN);  // a daemon that closes the link must not end this process
  if (path_.size() > kLongestSocketPath) {
    return false;
  }
  socket_ = KeldaneSocket::create();
  proxy_ = KeldaneProxy::create();
  proxy_->setSocket(socket_);
  proxy_->setProtocol(&KeldaneOwnerProtocol);
  if (socket_->connectToPath(path_)) {
    return true;
  }
  close();
  return false;
}

void OwnerLink::close() {
  if (proxy_) {
    proxy_->close();
    socket_->close();
    proxy_.reset();
    socket_.reset();
  }
}

RawValue OwnerLink::call(std::string_view selector, Arguments arguments) {
  return proxy_ ? proxy_->call(selector, std::move(arguments)) : RawValue();
}

}  // namespace keldane
