// The progress of a backup, its speed, and the time that is left.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace keldane {

/// Computed from the daemon's repeated reports of how much is pending. Files that have left the pending list
/// count as done; new files make the whole larger. A batch begins when something is pending and nothing was.
/// Used on one thread.
class BackupProgress {
 public:
  using Clock = std::chrono::steady_clock;

  /// Takes the bytes and files that are pending at this time; times do not go backwards.
  void update(std::uint64_t files, std::uint64_t bytes, Clock::time_point now);
  /// Forgets the rates, which would be wrong after the daemon was away.
  void forgetRates() { samples_.clear(); }

  /// The part of the whole batch that is done, 0 to 1, by bytes, or by files when the whole has no bytes; 1
  /// with nothing pending.
  double fraction() const;
  /// Averages over about the last 30 seconds; 0 until some work was seen to be done.
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
