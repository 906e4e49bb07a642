// Detects that the storage program waits for itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace keldane {

/// Version 0.14 of restic can wait for itself for ever when a write into a folder has failed because the disk
/// is full. It then goes on printing a status each second, always with the same numbers. Used on one thread.
class Standstill {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  /// Takes a line of the program's output. Returns whether its statuses have been the same for a minute.
  bool isSeenIn(std::string_view line, Moment now);
  /// The size in bytes of all files of the backup, according to the last status.
  std::uint64_t totalBytes() const { return totalBytes_; }

 private:
  std::string status_;  // the last status without the elapsed time
  Moment since_;
  std::uint64_t totalBytes_ = 0;
};

}  // namespace keldane
