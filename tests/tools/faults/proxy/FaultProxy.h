// A proxy between a client and the daemon, which passes on their messages with the faults of a plan. It is a
// program of its own or a part of a test.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/Descriptor.h"
#include "tests/tools/faults/proxy/FaultPlan.h"

namespace keldane::testing {

/// A record of a connection, from which the possible effects on the client are computed.
struct ConnectionReport {
  bool endedByClient = false;  ///< it closed first
  std::uint32_t requests = 0;  ///< whole requests that were read from the client
  std::uint32_t early = 0;     ///< bytes that went out to the client before it said anything
  std::string delivered;       ///< all bytes that went out to the client
  std::string forwarded;       ///< all bytes that went out to the daemon

  /// Writes the record as one line of text, and reads it back.
  std::string line() const;
  static std::optional<ConnectionReport> parse(const std::string& line);
  bool operator==(const ConnectionReport&) const = default;
};

/// The frames of one connection, by direction.
using RecordedFrames = std::array<std::vector<std::string>, 2>;

/// The end that `serve` waits for before it returns.
enum class Farewell : std::uint8_t {
  client,  ///< the end of the client's side, or of the connection by a fault
  daemon   ///< also the end of the daemon's side; the daemon has then done everything that it was told
};

/// Listens at one path for its lifetime, and connects to another path for each client. Used on one thread.
///
/// The proxy passes on whole frames. A client's call waits without a limit, so a plan that may leave a call
/// without an answer ends the connection when nothing has moved for a few milliseconds.
class FaultProxy {
 public:
  /// Both paths have at most 103 bytes. Throws std::system_error when it cannot listen.
  FaultProxy(const std::string& listenPath, std::string connectPath, Farewell farewell = Farewell::client);

  /// Waits for the next client that says something, and serves it to the end. Clean connections are recorded
  /// for plans that need to know the next frames. Throws std::runtime_error when the daemon keeps a
  /// connection that has ended, if its end is waited for.
  ConnectionReport serve(const FaultPlan& plan);

 private:
  std::string connectPath_;
  Farewell farewell_;
  Descriptor listener_;
  RecordedFrames recorded_;
};

}  // namespace keldane::testing
