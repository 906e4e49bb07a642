// The limits that a server sets for the peer of one connection. A client sets none: it waits for its daemon
// without a limit.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/threads/Mutex.h"

namespace keldane {

/// Messages up to this size, in bytes, use no budget, so that a menu can always be asked for.
inline constexpr std::uint32_t kSmallPayload = 64 * 1024;

/// A number of bytes that several connections share. It may be part of a larger budget. Any thread may call
/// it.
class ByteBudget {
 public:
  explicit ByteBudget(std::size_t bytes, std::shared_ptr<ByteBudget> whole = nullptr)
      : left_(bytes), whole_(std::move(whole)) {}
  ByteBudget(const ByteBudget&) = delete;
  ByteBudget& operator=(const ByteBudget&) = delete;

  /// Takes bytes out of the budget. It returns false and takes nothing when this budget or the larger one has
  /// less left.
  bool take(std::size_t bytes);
  void giveBack(std::size_t bytes);
  std::size_t left() const;

  /// The part of a budget that one message takes. It is given back when the message is done.
  class Share {
   public:
    /// Without a budget, `grow` always succeeds.
    explicit Share(std::shared_ptr<ByteBudget> budget) : budget_(std::move(budget)) {}
    ~Share();
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;
    bool grow(std::size_t bytes);

   private:
    const std::shared_ptr<ByteBudget> budget_;
    std::size_t taken_ = 0;
  };

 private:
  mutable Mutex mutex_;  // taken before the mutex of the larger budget
  std::size_t left_ KELDANE_GUARDED_BY(mutex_);
  const std::shared_ptr<ByteBudget> whole_;
};

/// The limits for one peer. A peer that exceeds one of them loses its link.
struct SocketLimits {
  std::uint32_t longestMessage = 0;       ///< bytes of an incoming payload
  std::chrono::milliseconds messageTime;  ///< from the first byte of an incoming message to its last
  std::chrono::milliseconds stallTime;    ///< the longest wait of a send while the peer reads nothing
  std::chrono::milliseconds sendTime;     ///< the longest time for the peer to read one piece of a message
  std::shared_ptr<ByteBudget> received;   ///< for incoming payloads, beyond the size of a small one
  std::shared_ptr<ByteBudget> unread;     ///< likewise for outgoing bytes that the peer has not read
};

}  // namespace keldane
