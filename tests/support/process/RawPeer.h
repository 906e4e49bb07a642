// The other end of a socket, byte by byte, without any code of the transport.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>

#include "platform/files/Descriptor.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

inline constexpr char kMarkerText[] = "8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04";

/// A frame from the wire.
struct Frame {
  std::string marker;
  std::int32_t type = 0;
  std::uint32_t length = 0;
  std::string payload;

  PropertyList value() const {
    return PropertyListSerialization::propertyListFromData(
        {reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()}, nullptr);
  }
};

/// One connection, at either end.
class RawConnection {
 public:
  explicit RawConnection(int descriptor) : descriptor_(descriptor) {}

  void write(const std::string& bytes) {
    ASSERT_EQ(::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  /// Returns false when the peer has gone.
  bool tryWrite(const std::string& bytes) {
    return ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  static std::string frame(std::int32_t type, const std::string& payload) {
    std::string bytes = kMarkerText;
    const auto length = static_cast<std::uint32_t>(payload.size());
    bytes.append(reinterpret_cast<const char*>(&type), 4);
    bytes.append(reinterpret_cast<const char*>(&length), 4);
    return bytes + payload;
  }
  static std::string payloadOf(const PropertyList& value) {
    std::string error;
    const auto bytes = PropertyListSerialization::dataFromPropertyList(
        value, PropertyListSerialization::Format::binary, &error);
    return std::string(bytes->begin(), bytes->end());
  }
  void writeFrame(std::int32_t type, const std::string& payload) { write(frame(type, payload)); }
  void answer(const PropertyList& value) { writeFrame(2, payloadOf(value)); }

  /// Reads exactly this much within a generous time. At the end of the stream it returns the bytes up to
  /// there.
  std::string read(std::size_t count) {
    std::string bytes;
    while (bytes.size() < count && isReadable(20000)) {
      char block[4096];
      const ssize_t got = ::recv(descriptor_.get(), block, std::min(sizeof(block), count - bytes.size()), 0);
      if (got <= 0) {
        break;
      }
      bytes.append(block, static_cast<std::size_t>(got));
    }
    return bytes;
  }
  /// The result of one read of at most this size.
  std::string readOnce(std::size_t most) {
    std::string bytes(most, '\0');
    const ssize_t got = ::recv(descriptor_.get(), bytes.data(), most, 0);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
  }
  Frame readFrame() {
    Frame frame;
    frame.marker = read(36);
    const std::string type = read(4);
    const std::string length = read(4);
    if (type.size() == 4 && length.size() == 4) {
      std::memcpy(&frame.type, type.data(), 4);
      std::memcpy(&frame.length, length.data(), 4);
      frame.payload = read(frame.length);
    }
    return frame;
  }
  /// Whether bytes or the end of the stream come within this time.
  bool isReadable(int milliseconds) {
    pollfd source{descriptor_.get(), POLLIN, 0};
    return poll(&source, 1, milliseconds) == 1;
  }
  /// Whether more can be written within this time.
  bool isWritable(int milliseconds) {
    pollfd target{descriptor_.get(), POLLOUT, 0};
    return poll(&target, 1, milliseconds) == 1;
  }
  bool isAtEnd() { return isReadable(20000) && read(1).empty(); }
  void close() { descriptor_ = Descriptor(); }
  int descriptor() const { return descriptor_.get(); }

 private:
  Descriptor descriptor_;
};

/// A connection for bytes that no client would send.
inline RawConnection connectedTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  return RawConnection(descriptor);
}

/// A listening socket in a folder of its own.
class RawPeer {
 public:
  RawPeer() : path_(folder_ / "peer.sock"), listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(::listen(listener_.get(), 10), 0);
  }
  const std::string& path() const { return path_; }
  RawConnection accept() { return RawConnection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)); }

 private:
  TemporaryFolder folder_;
  std::string path_;
  Descriptor listener_;
};

}  // namespace keldane::testing
