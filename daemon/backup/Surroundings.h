// The state of power and network, and whether the backup rests because of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/threads/Mutex.h"

namespace keldane {

/// Another program reports the state of power and network at intervals; the daemon itself asks nobody. A
/// report is valid for some minutes only, so that the last one of a program that died does not count for
/// ever. Times are seconds since boot. Used on any thread.
class Surroundings {
 public:
  struct Report {
    std::optional<std::uint32_t> batteryPercent;  ///< absent: not on battery
    bool metered = false;
    bool powerSaver = false;
  };
  /// The user's settings.
  struct Rules {
    std::uint32_t restBelowPercent = 30;  ///< on battery; 0: never because of it
    bool restOnMetered = true;            ///< when the repository is reached over the network
    bool restInPowerSaver = true;
  };
  /// The number of seconds for which a report is valid.
  static constexpr std::int64_t kHolds = 180;

  void tell(const Report& report, std::int64_t now);
  /// Whether there is a valid report.
  bool holds(std::int64_t now) const;
  /// A sentence for people without its full stop; empty when backups may run now.
  std::string reason(const Rules& rules, bool isRepositoryRemote, std::int64_t now) const;
  /// The time when the reason ends unless there is a new report; 0 without a reason.
  std::int64_t restsUntil(const Rules& rules, bool isRepositoryRemote, std::int64_t now) const;

 private:
  mutable Mutex mutex_;
  Report report_ KELDANE_GUARDED_BY(mutex_);
  std::int64_t until_ KELDANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace keldane
