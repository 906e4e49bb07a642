// The lower limit for the cost of a call: the same bytes, without code that makes or reads them.
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

/// The system calls with which a message is sent and read.
enum class Pieces {
  four,   ///< marker, type, length and payload, each with its own send and read
  ahead,  ///< the same sends, but each read takes all bytes that have come, as the transport does
  one,    ///< one send and one read
};

/// Connects to the local socket at `path`.
Descriptor connectTo(const std::string& path);
/// Listens there and serves the first peer: each message is answered with `answer` after `delay`. Returns
/// when the peer has gone.
void serveFloor(const std::string& path, Pieces pieces, const Bytes& answer,
                std::chrono::microseconds delay = std::chrono::microseconds(0));
/// The same for lines of text.
void serveLines(const std::string& path, const std::string& answer);

/// A caller that sends, and waits until a reading thread hands over the answer. That thread polls for the
/// time `looking` before it sleeps until the next byte comes.
class FloorClient {
 public:
  FloorClient(const std::string& path, Pieces pieces, const Bytes& request,
              std::chrono::microseconds looking = std::chrono::microseconds(0));
  ~FloorClient();
  FloorClient(const FloorClient&) = delete;
  FloorClient& operator=(const FloorClient&) = delete;

  /// Calls once and returns the size of the answer.
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

/// A caller that sends and reads one line on its own thread, as clients of file synchronisers do.
class LineClient {
 public:
  explicit LineClient(const std::string& path) : socket_(connectTo(path)) {}
  /// Asks about a file and returns the number of fields in the answer.
  std::size_t call(const std::string& file);

 private:
  Descriptor socket_;
};

}  // namespace keldane::bench
