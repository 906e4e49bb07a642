// The clocks: one that cannot be set, and the time of day.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>

namespace keldane {

/// Seconds since the computer was started. This clock goes on while the computer sleeps, and does not jump
/// when the time of day is set.
inline std::int64_t secondsSinceBoot() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return now.tv_sec;
}

/// The time of day in seconds since the UNIX epoch.
inline double timeOfDay() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// The time for which the computer has slept since it was started, in seconds.
inline std::int64_t secondsAsleep() {
  timespec awake{};
  clock_gettime(CLOCK_MONOTONIC, &awake);
  return secondsSinceBoot() - awake.tv_sec;
}

}  // namespace keldane
