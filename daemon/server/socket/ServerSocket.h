// The listening socket of a server of this daemon.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "Common/transport/KeldSocket.h"
#include "daemon/server/socket/SocketPath.h"

namespace keldane {

/// Listens at a path that this daemon alone serves. The server that owns it opens and closes it on one
/// thread; the delegate hears of peers on the accept thread.
class ServerSocket {
 public:
  ServerSocket(std::string path, bool allowSharedFolder) : path_(std::move(path), allowSharedFolder) {}

  const std::string& path() const { return path_.text(); }

  /// Begins to listen. False and a sentence when the path cannot be used: somebody answers there, something
  /// other than a socket is there, it is too long for an address, others can write to its folder. A socket
  /// that a dead daemon left is replaced.
  bool open(std::shared_ptr<KeldSocketDelegate> delegate, std::string* error, mode_t mode = 0777);
  /// Whether it was opened, successfully or not, and not closed since.
  bool isOpen() const { return listener_ != nullptr; }
  /// Accepts no more connections and removes the socket from the path.
  void close();

 private:
  SocketPath path_;
  std::shared_ptr<KeldaneSocket> listener_;
};

}  // namespace keldane
