// What a server allows the peer of one connection. A client sets no limits: it trusts its daemon to answer in
// its time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/threads/Mutex.h"

namespace keldane {

/// Messages up to this size draw on no budget, so that it is always possible to ask for a menu.
inline constexpr std::uint32_t kSmallPayload = 64 * 1024;

/// A number of bytes that several connections share, in turn part of a larger one when there is one. Any
/// thread.
class ByteBudget {
 public:
  explicit ByteBudget(std::size_t bytes, std::shared_ptr<ByteBudget> whole = nullptr)
      : left_(bytes), whole_(std::move(whole)) {}
  ByteBudget(const ByteBudget&) = delete;
  ByteBudget& operator=(const ByteBudget&) = delete;

  /// False, and nothing is taken, when there is not as much left here and in the whole.
  bool take(std::size_t bytes);
  void giveBack(std::size_t bytes);
  std::size_t left() const;

  /// What one message holds of a budget, given back when the message is done.
  class Share {
   public:
    /// Without a budget there is always enough.
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
  mutable Mutex mutex_;  // before the whole's own
  std::size_t left_ KELDANE_GUARDED_BY(mutex_);
  const std::shared_ptr<ByteBudget> whole_;
};

/// A peer that goes beyond one of these loses its link.
struct SocketLimits {
  std::uint32_t longestMessage = 0;       ///< bytes of a payload that comes in
  std::chrono::milliseconds messageTime;  ///< from the first byte of a message that comes in to its last
  std::chrono::milliseconds stallTime;    ///< that a send may wait for a peer that reads nothing
  std::chrono::milliseconds sendTime;     ///< that one piece of a message may take to be read in all
  std::shared_ptr<ByteBudget> received;   ///< for payloads that come in, beyond what a small one needs
  std::shared_ptr<ByteBudget> unread;     ///< for what waits to be read, likewise
};

}  // namespace keldane
