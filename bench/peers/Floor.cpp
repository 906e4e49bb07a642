#include "bench/peers/Floor.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Common/transport/KeldSocket.h"

namespace keldane::bench {

namespace {

constexpr std::size_t kHeaderSize = kFrameMarker.size() + 2 * sizeof(std::uint32_t);

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

Descriptor accepted(const std::string& path) {
  const Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = addressOf(path);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(listener.get(), 1) != 0) {
    throw std::runtime_error("nobody can listen at " + path);
  }
  return Descriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

bool sendAll(int socket, const void* bytes, std::size_t size) {
  for (const char* next = static_cast<const char*>(bytes); size > 0;) {
    const ssize_t sent = ::send(socket, next, size, MSG_NOSIGNAL);
    if (sent < 1) {
      return false;
    }
    next += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

ssize_t readSome(int socket, void* bytes, std::size_t size, std::chrono::microseconds looking) {
  if (looking.count() > 0) {
    const auto end = std::chrono::steady_clock::now() + looking;
    do {
      const ssize_t got = ::recv(socket, bytes, size, MSG_DONTWAIT);
      if (got >= 0 || errno != EAGAIN) {
        return got;
      }
    } while (std::chrono::steady_clock::now() < end);
  }
  return ::read(socket, bytes, size);
}

bool readAll(int socket, void* bytes, std::size_t size, std::chrono::microseconds looking) {
  for (char* next = static_cast<char*>(bytes); size > 0;) {
    const ssize_t got = readSome(socket, next, size, looking);
    if (got < 1) {
      return false;
    }
    next += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

Bytes framed(const Bytes& payload, std::int32_t type) {
  Bytes frame(kHeaderSize + payload.size());
  const auto length = static_cast<std::uint32_t>(payload.size());
  std::memcpy(frame.data(), kFrameMarker.data(), kFrameMarker.size());
  std::memcpy(frame.data() + kFrameMarker.size(), &type, sizeof(type));
  std::memcpy(frame.data() + kFrameMarker.size() + sizeof(type), &length, sizeof(length));
  std::memcpy(frame.data() + kHeaderSize, payload.data(), payload.size());
  return frame;
}

bool sendMessage(int socket, Pieces pieces, const Bytes& frame) {
  if (pieces == Pieces::one) {
    return sendAll(socket, frame.data(), frame.size());
  }
  constexpr std::size_t kType = kFrameMarker.size();
  return sendAll(socket, frame.data(), kType) && sendAll(socket, &frame[kType], 4) &&
         sendAll(socket, &frame[kType + 4], 4) &&
         sendAll(socket, &frame[kHeaderSize], frame.size() - kHeaderSize);
}

/// Reads the payload. With Pieces::one and Pieces::ahead it reads the whole message, of up to 4096 bytes.
bool readMessage(int socket, Pieces pieces, Bytes& payload,
                 std::chrono::microseconds looking = std::chrono::microseconds(0)) {
  if (pieces == Pieces::one) {
    payload.resize(4096);
    const ssize_t got = readSome(socket, payload.data(), payload.size(), looking);
    payload.resize(got < 1 ? 0 : static_cast<std::size_t>(got));
    return got > 0;
  }
  if (pieces == Pieces::ahead) {  // no second message comes before the first is answered
    payload.resize(4096);
    std::size_t done = 0;
    std::uint32_t length = 0;
    while (done < kHeaderSize + length) {
      const ssize_t got = readSome(socket, payload.data() + done, payload.size() - done, looking);
      if (got < 1) {
        return false;
      }
      done += static_cast<std::size_t>(got);
      if (done >= kHeaderSize) {
        std::memcpy(&length, &payload[kHeaderSize - sizeof(length)], sizeof(length));
      }
    }
    payload.resize(done);
    return true;
  }
  char marker[kFrameMarker.size()];
  std::int32_t type = 0;
  std::uint32_t length = 0;
  if (!readAll(socket, marker, sizeof(marker), looking) || !readAll(socket, &type, sizeof(type), looking) ||
      !readAll(socket, &length, sizeof(length), looking)) {
    return false;
  }
  payload.resize(length);
  return readAll(socket, payload.data(), length, looking);
}

}  // namespace

Descriptor connectTo(const std::string& path) {
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = addressOf(path);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("nobody listens at " + path);
  }
  return socket;
}

void serveFloor(const std::string& path, Pieces pieces, const Bytes& answer,
                std::chrono::microseconds delay) {
  const Descriptor socket = accepted(path);
  const Bytes frame = framed(answer, kResponseFrame);
  Bytes request;
  while (readMessage(socket.get(), pieces, request)) {
    if (delay.count() > 0) {
      std::this_thread::sleep_for(delay);
    }
    if (!sendMessage(socket.get(), pieces, frame)) {
      return;
    }
  }
}

void serveLines(const std::string& path, const std::string& answer) {
  const Descriptor socket = accepted(path);
  char line[4096];
  while (::read(socket.get(), line, sizeof(line)) > 0 &&
         sendAll(socket.get(), answer.data(), answer.size())) {
  }
}

FloorClient::FloorClient(const std::string& path, Pieces pieces, const Bytes& request,
                         std::chrono::microseconds looking)
    : pieces_(pieces),
      looking_(looking),
      request_(framed(request, kRequestFrame)),
      socket_(connectTo(path)),
      receiver_([this] { receive(); }) {}

FloorClient::~FloorClient() {
  ::shutdown(socket_.get(), SHUT_RDWR);
  receiver_.join();
}

std::size_t FloorClient::call() {
  sendMessage(socket_.get(), pieces_, request_);
  std::unique_lock guard(mutex_);
  changed_.wait(guard, [this] { return hasAnswer_; });
  hasAnswer_ = false;
  return std::exchange(answer_, {}).size();
}

void FloorClient::receive() {
  for (;;) {
    Bytes answer;
    if (!readMessage(socket_.get(), pieces_, answer, looking_)) {
      return;
    }
    {
      const std::lock_guard guard(mutex_);
      answer_ = std::move(answer);
      hasAnswer_ = true;
    }
    changed_.notify_all();
  }
}

std::size_t LineClient::call(const std::string& file) {
  const std::string line = "RETRIEVE_FILE_STATUS\t" + file + "\n";
  sendAll(socket_.get(), line.data(), line.size());
  std::string answer;
  while (answer.empty() || answer.back() != '\n') {
    char part[4096];
    const ssize_t got = ::read(socket_.get(), part, sizeof(part));
    if (got < 1) {
      return 0;
    }
    answer.append(part, static_cast<std::size_t>(got));
  }
  std::size_t fields = 0;
  for (std::size_t at = 0; at != std::string::npos; at = answer.find('\t', at + 1)) {
    ++fields;
  }
  return fields;
}

}  // namespace keldane::bench
