// How far a backup has come, how fast it goes, and how long it will take.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace keldane {

/// Made from what the daemon tells: how much is pending, again and again. What has left the pending list
/// counts as done; what comes in makes the whole larger. A batch begins when something is pending and nothing
/// was. One thread.
class BackupProgress {
 public:
  using Clock = std::chrono::steady_clock;

  /// Bytes and files that are pending at this time; times do not go backwards.
  void update(std::uint64_t files, std::uint64_t bytes, Clock::time_point now);
  /// Forgets the rates, which a daemon that was away would spoil.
  void forgetRates() { samples_.clear(); }

  /// Done of the whole batch, 0 to 1, by bytes, and by files when the whole has none; 1 with nothing pending.
  double fraction() const;
  /// Over about the last 30 seconds; 0 until something was seen to be done.
  double bytesPerSecond() const { return perSecond(&Amount::bytes); }
  double filesPerSecond() const { return perSecond(&Amount::files); }
  /// Absent while nothing moves, 0 with nothing pending.
  std::optional<std::chrono::seconds> timeLeft() const;

 private:
  struct Amount {
    std::uint64_t files = 0, bytes = 0;
  };
  struct Sample {
    Clock::time_point time;
    Amount done;
  };
  double perSecond(std::uint64_t Amount::*part) const;

  Amount pending_, done_;
  std::deque<Sample> samples_;
};

}  // namespace keldane
