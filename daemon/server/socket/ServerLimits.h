// The limits on what each client, and all clients together, may take of the daemon.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "Common/transport/SocketLimits.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The defaults leave room for a selection of 10,000 files in one request and a listing of 250,000 entries in
/// one answer. docs/daemon.md has the reasons.
struct ServerLimits {
  std::size_t connections = 1024, connectionsOfUser = 512;
  std::uint32_t longestRequest = std::uint32_t{8} << 20;
  std::chrono::milliseconds requestTime = std::chrono::seconds(30);
  std::chrono::milliseconds stallTime = std::chrono::seconds(5);
  std::chrono::milliseconds answerTime = std::chrono::seconds(60);
  std::size_t requestBytes = std::size_t{128} << 20, requestBytesOfUser = std::size_t{32} << 20;
  std::size_t answerBytes = std::size_t{512} << 20, answerBytesOfUser = std::size_t{128} << 20;
  unsigned walks = 8, walksOfUser = 2;

  /// The limits of one connection, whose messages are paid for from these budgets.
  SocketLimits ofPeer(std::shared_ptr<ByteBudget> requests, std::shared_ptr<ByteBudget> answers) const {
    return {longestRequest, requestTime, stallTime, answerTime, std::move(requests), std::move(answers)};
  }
};

/// The turns of requests that walk through folders or long lists, which takes time and memory. Turns of one
/// user are given in the order of the requests. Used on any thread.
class WalkTurns {
 public:
  WalkTurns(unsigned all, unsigned ofUser) : all_(all), ofUser_(ofUser) {}
  WalkTurns(const WalkTurns&) = delete;
  WalkTurns& operator=(const WalkTurns&) = delete;

  /// The counters of one user.
  struct Line {
    std::uint64_t arrived KELDANE_GUARDED_BY(&WalkTurns::mutex_) = 0;
    std::uint64_t left KELDANE_GUARDED_BY(&WalkTurns::mutex_) = 0;
  };

  /// One turn. The constructor waits for it, the destructor ends it.
  class Turn {
   public:
    Turn(WalkTurns& turns, Line& line);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    /// False when `end` was called, so that there was no turn.
    explicit operator bool() const { return begun_; }

   private:
    WalkTurns& turns_;
    Line& line_;
    bool begun_ = false;
  };

  /// Gives no more turns, and releases all waiting threads.
  void end();
  unsigned underWay() const;
  /// The number of turns that were ever asked for.
  std::uint64_t arrivedIn(const Line& line) const;

 private:
  const unsigned all_, ofUser_;
  mutable Mutex mutex_{{.name = "WalkTurns.mutex", .leaf = true}};
  Condition changed_;
  unsigned underWay_ KELDANE_GUARDED_BY(mutex_) = 0;
  bool ended_ KELDANE_GUARDED_BY(mutex_) = false;
};

/// The budgets and turns that the connections of one user share.
struct UserShare {
  UserShare(std::shared_ptr<WalkTurns> allTurns, std::size_t requestBytes,
            std::shared_ptr<ByteBudget> allRequests, std::size_t answerBytes,
            std::shared_ptr<ByteBudget> allAnswers)
      : turns(std::move(allTurns)),
        requests(std::make_shared<ByteBudget>(requestBytes, std::move(allRequests))),
        answers(std::make_shared<ByteBudget>(answerBytes, std::move(allAnswers))) {}

  const std::shared_ptr<WalkTurns> turns;
  WalkTurns::Line line;
  const std::shared_ptr<ByteBudget> requests, answers;
};

}  // namespace keldane
