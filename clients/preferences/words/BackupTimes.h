// The times of the backups, for a time line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace keldane {

/// Times in seconds since the UNIX epoch, oldest first, and after them the present. A value.
class BackupTimes {
 public:
  BackupTimes() = default;
  /// Takes the times in ascending order; those in the future count as the present.
  BackupTimes(std::vector<double> times, double now);

  bool isEmpty() const { return times_.empty(); }
  /// The time of the first backup; the present when there is none.
  double begin() const { return times_.empty() ? now_ : times_.front(); }
  double now() const { return now_; }
  /// The last backup up to a time; the first when all are later.
  double upTo(double time) const;
  /// The backup, or the present, that lies nearest.
  double nearest(double time) const;
  /// The time that lies `steps` backups after `time`, or before it when `steps` is negative.
  double stepped(double time, int steps) const;
  /// Times to mark on a line with room for `most` marks. No two marks are closer than that room allows.
  std::vector<double> marks(std::size_t most) const;

 private:
  std::vector<double> times_;
  double now_ = 0;
};

/// "2026-11-20 14:03:22" in local time, rounded up to a full second, as `timeNamed` reads it.
std::string exactTimeText(double time);

}  // namespace keldane
