// A name in the file system that one daemon alone serves.
#pragma once

#include <string>

#include "platform/files/Descriptor.h"

namespace keldane {

/// Claims a socket's path before somebody listens there, and keeps it as long as it lives. The lock beside
/// the socket decides between daemons; its file stays. One thread.
class SocketPath {
 public:
  /// `allowSharedFolder`: even where others could put a socket of their own in its place.
  SocketPath(std::string path, bool allowSharedFolder)
      : path_(std::move(path)), allowSharedFolder_(allowSharedFolder) {}

  const std::string& text() const { return path_; }

  /// Makes the folder if it is missing. False and a sentence when the path cannot be had: somebody answers
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
