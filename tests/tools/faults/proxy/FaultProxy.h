// A process of its own between a client and the daemon, or a part of a test: it passes on what they say to
// each other, with the faults of a plan.
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

/// How a connection went, for who wants to know what the client can have made of it.
struct ConnectionReport {
  bool endedByClient = false;  ///< it closed first
  std::uint32_t requests = 0;  ///< whole ones that were read from the client
  std::uint32_t early = 0;     ///< bytes for the client that went out before it said anything
  std::string delivered;       ///< all bytes that went out to the client
  std::string forwarded;       ///< all bytes that went out to the daemon

  /// One line of text, and back.
  std::string line() const;
  static std::optional<ConnectionReport> parse(const std::string& line);
  bool operator==(const ConnectionReport&) const = default;
};

/// Frames that one connection carried, by direction.
using RecordedFrames = std::array<std::vector<std::string>, 2>;

/// Which end of a connection `serve` waits for before it returns.
enum class Farewell : std::uint8_t {
  client,  ///< the client's, or the fault's
  daemon   ///< the daemon's too, which then has done all that it was told
};

/// Listens at one path for as long as it lives, and connects to another for each client. One thread.
///
/// It takes whole frames and passes them on. As a client's call waits without a limit, a plan that may leave
/// one without an answer ends the connection once nothing has moved for a few milliseconds.
class FaultProxy {
 public:
  /// Both paths have at most 103 bytes. Throws std::system_error when it cannot listen.
  FaultProxy(const std::string& listenPath, std::string connectPath, Farewell farewell = Farewell::client);

  /// Waits for the next client that says something and serves it to the end. Clean connections are remembered
  /// for the plans that need to know what will come. Throws std::runtime_error when a daemon whose end is
  /// waited for keeps a connection that has ended.
  ConnectionReport serve(const FaultPlan& plan);

 private:
  std::string connectPath_;
  Farewell farewell_;
  Descriptor listener_;
  RecordedFrames recorded_;
};

}  // namespace keldane::testing
