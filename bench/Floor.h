// The least that a call can cost: the same bytes to and fro without anything that makes or reads them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/files/Descriptor.h"
#include "platform/plist/PropertyList.h"

namespace keldane::bench {

/// How the bytes of a message pass.
enum class Pieces {
  four,   ///< marker, type, length and payload, each with a send and a read of its own
  ahead,  ///< the same sends, but each read takes whatever has come, as the transport does
  one,    ///< one send and one read
};

/// Connects to the local socket at `path`.
Descriptor connectTo(const std::string& path);
/// Listens there and answers the first peer that comes: each message with `answer`, after a while. Returns
/// when it has gone.
void serveFloor(const std::string& path, Pieces pieces, const Bytes& answer,
                std::chrono::microseconds delay = std::chrono::microseconds(0));
/// The same for lines of text.
void serveLines(const std::string& path, const std::string& answer);

/// A caller that sends and then waits until a thread that reads has handed an answer over. That thread looks
/// for the next byte for the time `looking` before it sleeps until one comes.
class FloorClient {
 public:
  FloorClient(const std::string& path, Pieces pieces, const Bytes& request,
              std::chrono::microseconds looking = std::chrono::microseconds(0));
  ~FloorClient();
  FloorClient(const FloorClient&) = delete;
  FloorClient& operator=(const FloorClient&) = delete;

  /// The size of the answer.
  std::size_t call();

 private:
  void receive();

  const Pieces pieces_;
  const std::chrono::microseconds looking_;
  const Bytes request_;
  Descriptor socket_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool hasAnswer_ = false;
  Bytes answer_;
  std::thread receiver_;
};

/// A caller that sends a line and reads one, on its own thread, as clients of file synchronisers do.
class LineClient {
 public:
  explicit LineClient(const std::string& path) : socket_(connectTo(path)) {}
  /// The number of fields in the answer to a question about a file.
  std::size_t call(const std::string& file);

 private:
  Descriptor socket_;
};

}  // namespace keldane::bench
