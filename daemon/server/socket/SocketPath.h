// The path of a socket, which only one daemon at a time may use.
#pragma once

#include <string>

#include "platform/files/Descriptor.h"

namespace keldane {

/// Claims a socket's path before a server listens there, and keeps it for its lifetime. A lock file beside
/// the socket decides between daemons; the file is never removed. Used on one thread.
class SocketPath {
 public:
  /// `allowSharedFolder` allows folders in which others could replace the socket.
  SocketPath(std::string path, bool allowSharedFolder)
      : path_(std::move(path)), allowSharedFolder_(allowSharedFolder) {}

  const std::string& text() const { return path_; }

  /// Makes the folder if it is missing. False and a sentence when the path cannot be used: somebody answers
  /// there, something other than a socket is there, it is too long for an address, others can write to its
  /// folder. A socket that a dead daemon left may be replaced.
  bool claim(std::string* error);

 private:
  bool lock(std::string* error);

  const std::string path_;
  const bool allowSharedFolder_;
  Descriptor lock_;
};

}  // namespace keldane
