#include "daemon/server/socket/ServerSocket.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace keldane {

bool ServerSocket::open(std::shared_ptr<KeldSocketDelegate> delegate, std::string* error, mode_t mode) {
  if (!path_.claim(error)) {
    return false;
  }
  listener_ = KeldaneSocket::create();
  listener_->setSocketDelegate(std::move(delegate));
  errno = 0;
  if (!listener_->listenAtPath(path(), mode)) {
    *error = "The socket " + path() + " cannot be made: " + std::generic_category().message(errno) + ".";
    return false;
  }
  return true;
}

void ServerSocket::close() {
  if (!listener_) {
    return;
  }
  listener_->close();
  ::unlink(path().c_str());  // a listener that nobody ever called leaves its file
  listener_.reset();
}

}  // namespace keldane
