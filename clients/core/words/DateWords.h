// Points in time as people name them.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>

namespace keldane {

/// Seconds since the UNIX epoch for "2026-11-20", "2026-11-20 14:00" (or with "T" between them, or seconds),
/// "now", "today", "yesterday" (with a time of day behind it or not), "2 days ago" (minutes, hours, days,
/// weeks, months, years). Local time; a day without a time of day is its beginning. Absent for anything else
/// and for days that no calendar has.
std::optional<std::int64_t> timeNamed(std::string_view text, std::time_t now);

}  // namespace keldane
