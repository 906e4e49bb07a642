// What is told of power and network, and whether the backup rests because of it.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace keldane {

/// A program beside the daemon tells how power and network stand, again and again: the daemon itself asks
/// nobody. What was told holds for some minutes only, so that a program that died is not believed for ever.
/// Times are seconds since boot. Any thread.
class Surroundings {
 public:
  struct Report {
    std::optional<std::uint32_t> batteryPercent;  ///< absent: not on battery
    bool metered = false;
    bool powerSaver = false;
  };
  /// What a person wants.
  struct Rules {
    std::uint32_t restBelowPercent = 30;  ///< on battery; 0: never because of it
    bool restOnMetered = true;            ///< when the repository is reached over the network
    bool restInPowerSaver = true;
  };
  /// For so many seconds a report holds.
  static constexpr std::int64_t kHolds = 180;

  void tell(const Report& report, std::int64_t now);
  /// Whether a report holds.
  bool holds(std::int64_t now) const;
  /// A sentence for people without its full stop; empty when nothing speaks against backups now.
  std::string reason(const Rules& rules, bool isRepositoryRemote, std::int64_t now) const;
  /// Until when the reason holds unless more is told; 0 without one.
  std::int64_t restsUntil(const Rules& rules, bool isRepositoryRemote, std::int64_t now) const;

 private:
  mutable std::mutex mutex_;
  Report report_;           // guarded by mutex_
  std::int64_t until_ = 0;  // guarded by mutex_
};

}  // namespace keldane
