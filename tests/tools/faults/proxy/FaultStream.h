// One direction of a connection that passes through the proxy.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/tools/faults/proxy/FaultPlan.h"

namespace keldane::testing {

/// One direction of one connection: takes whole frames, and writes them with the faults of the plan. It
/// owns neither the descriptors nor the plan. Used on one thread.
class FaultStream {
 public:
  FaultStream(Direction direction, const FaultPlan& plan, const std::vector<std::string>& foretold, int from,
              int to);

  bool isReading() const { return !isStopped() && !ended_; }
  /// The whole frames and the number of bytes that were read, and all bytes that went out.
  const std::vector<std::string>& frames() const { return frames_; }
  std::size_t bytesRead() const { return bytesRead_; }
  const std::string& delivered() const { return delivered_; }
  /// The time when the next piece is to be written; absent when there is none.
  std::optional<std::chrono::steady_clock::time_point> due() const {
    return pieces_.empty() ? std::nullopt : std::optional(pieces_.front().due);
  }

  /// Reads once, without waiting for more. Returns false at the end of the stream.
  bool read();
  /// Writes the pieces that are due, or all of them. Returns false when that ends the connection.
  bool write(bool all);

 private:
  struct Piece {
    std::string bytes;
    std::chrono::steady_clock::time_point due;
    bool isSplit = false;
    std::uint32_t joins = 0;  // further frames that belong to this write
  };

  const Fault* find(FaultKind kind) const { return plan_.find(direction_, kind); }
  /// The fault of that kind if it hits this frame; otherwise null.
  const Fault* striking(FaultKind kind, std::uint32_t frame) const {
    const Fault* fault = find(kind);
    return fault != nullptr && fault->at == frame ? fault : nullptr;
  }
  bool isStopped() const {
    const Fault* fault = find(FaultKind::stop);
    return fault != nullptr && bytesRead_ >= fault->at;
  }
  bool isClosing() const {
    const Fault* fault = find(FaultKind::close);
    return fault != nullptr && offset_ >= fault->at;
  }

  void takeFrames();
  /// Queues the received frame number `index` with the faults that hit it.
  void pass(std::uint32_t index, std::string frame);
  void queue(std::string bytes, std::chrono::milliseconds delay = {});
  /// Writes a piece. Returns false when the peer is gone.
  bool transmit(const Piece& piece);
  bool send(std::string_view bytes);
  /// Gives the peer up to a millisecond to read what was sent.
  void waitUntilRead() const;

  const Direction direction_;
  const FaultPlan& plan_;
  const std::vector<std::string>& foretold_;
  const int from_;
  const int to_;
  std::string unread_;
  std::size_t bytesRead_ = 0;
  bool ended_ = false;
  std::vector<std::string> frames_;
  std::set<std::uint32_t> leftOut_;
  std::string repeated_;
  std::deque<Piece> pieces_;
  std::size_t offset_ = 0;  // counts the bytes that were written and those that were cut out
  std::string delivered_;
};

}  // namespace keldane::testing
