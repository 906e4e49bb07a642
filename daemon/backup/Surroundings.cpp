#include "daemon/backup/Surroundings.h"

namespace keldane {

void Surroundings::tell(const Report& report, std::int64_t now) {
  const ScopedLock guard(mutex_);
  report_ = report;
  until_ = now + kHolds;
}

bool Surroundings::holds(std::int64_t now) const {
  const ScopedLock guard(mutex_);
  return now < until_;
}

std::string Surroundings::reason(const Rules& rules, bool isRepositoryRemote, std::int64_t now) const {
  const ScopedLock guard(mutex_);
  if (now >= until_) {
    return {};
  }
  if (report_.batteryPercent && *report_.batteryPercent < rules.restBelowPercent) {
    return "The battery is at " + std::to_string(*report_.batteryPercent) + " %";
  }
  if (report_.powerSaver && rules.restInPowerSaver) {
    return "The computer saves power";
  }
  if (report_.metered && rules.restOnMetered && isRepositoryRemote) {
    return "The network is metered";
  }
  return {};
}

std::int64_t Surroundings::restsUntil(const Rules& rules, bool isRepositoryRemote, std::int64_t now) const {
  if (reason(rules, isRepositoryRemote, now).empty()) {
    return 0;
  }
  const ScopedLock guard(mutex_);
  return until_;
}

}  // namespace keldane
