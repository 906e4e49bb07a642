// Writes frames as a peer does, and reads any bytes as frames. It is a second implementation, to compare
// with.
#pragma once

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <vector>

#include "Common/transport/KeldSocket.h"
#include "fuzz/Fuzzing.h"

namespace keldane::fuzzing {

struct Frame {
  std::int32_t type = 0;
  Bytes payload;
  bool operator==(const Frame&) const = default;
};

inline void append(Bytes& bytes, const void* data, std::size_t size) {
  const auto* first = static_cast<const std::uint8_t*>(data);
  bytes.insert(bytes.end(), first, first + size);
}

inline void appendFrame(Bytes& bytes, std::int32_t type, BytesView payload) {
  const auto length = static_cast<std::uint32_t>(payload.size());
  append(bytes, kFrameMarker.data(), kFrameMarker.size());
  append(bytes, &type, sizeof(type));
  append(bytes, &length, sizeof(length));
  append(bytes, payload.data(), payload.size());
}

/// The frames in a stream, and the number of bytes that are missing until the next frame can begin.
struct FrameStream {
  explicit FrameStream(BytesView bytes) {
    constexpr std::size_t kMarker = kFrameMarker.size(), kHeader = kMarker + 8;
    while (!bytes.empty()) {
      if (bytes.size() < kMarker || std::memcmp(bytes.data(), kFrameMarker.data(), kMarker) != 0) {
        missing = bytes.size() < kMarker ? kMarker - bytes.size() : 0;
        bytes = bytes.subspan(std::min(kMarker, bytes.size()));
        continue;
      }
      Frame frame;
      std::uint32_t length = 0;
      if (bytes.size() >= kHeader) {
        std::memcpy(&frame.type, bytes.data() + kMarker, 4);
        std::memcpy(&length, bytes.data() + kMarker + 4, 4);
      }
      if (bytes.size() < kHeader + length) {
        missing = kHeader + length - bytes.size();
        return;
      }
      frame.payload.assign(bytes.begin() + kHeader, bytes.begin() + kHeader + length);
      frames.push_back(std::move(frame));
      missing = 0;
      bytes = bytes.subspan(kHeader + length);
    }
  }
  std::vector<Frame> frames;
  std::uint64_t missing = 0;
};

/// Fills the stream up to a place where a frame can begin. Returns false when that would take too long for a
/// run.
inline bool complete(Bytes& stream) {
  constexpr std::uint64_t kLongestPadding = 65536;
  std::uint64_t missing = FrameStream(stream).missing;
  for (; missing > 0 && missing <= kLongestPadding; missing = FrameStream(stream).missing) {
    stream.resize(stream.size() + missing);
  }
  return missing == 0;
}

/// Whether the condition comes true, on another thread, within a generous time. This does not sleep, because
/// a run is short.
inline bool soon(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    sched_yield();
  }
  return true;
}

/// One of two connected descriptors; other code owns the other one.
class Connection {
 public:
  Connection() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    descriptor_ = Descriptor(ends[0]);
    other_ = ends[1];
  }
  explicit Connection(int connected) : descriptor_(connected) {}
  /// The other descriptor, for its owner.
  int other() const { return other_; }
  int descriptor() const { return descriptor_.get(); }

  void write(BytesView bytes) const {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      require(sent > 0 || errno == EINTR, "bytes are taken");  // the engine has an alarm clock
      bytes = bytes.subspan(sent > 0 ? static_cast<std::size_t>(sent) : 0);
    }
  }
  /// The bytes that have come. Waits this long for the first one.
  Bytes read(int milliseconds) const {
    Bytes bytes;
    std::uint8_t block[16384];
    for (ssize_t got = 1; got > 0 && isReadable(bytes.empty() ? milliseconds : 0);) {
      got = ::recv(descriptor_.get(), block, sizeof(block), 0);
      append(bytes, block, got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    return bytes;
  }
  /// The engine's alarm clock may interrupt the wait, which then begins anew. The engine ends a run that
  /// hangs.
  bool isReadable(int milliseconds) const {
    pollfd source{descriptor_.get(), POLLIN, 0};
    int ready = 0;
    do {
      ready = poll(&source, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    return ready == 1;
  }
  /// Whether the other end has not read everything yet.
  bool hasUnread() const {
    int left = 0;
    return ioctl(descriptor_.get(), SIOCOUTQ, &left) == 0 && left > 0;
  }

 private:
  Descriptor descriptor_;
  int other_ = -1;
};

}  // namespace keldane::fuzzing
