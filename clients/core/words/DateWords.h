// Reads points in time as people write them.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>

namespace keldane {

/// Seconds since the UNIX epoch for "2026-11-20", "2026-11-20 14:00" (also with seconds, or with "T" instead
/// of the blank), "now", "today" and "yesterday" (also with a time of day), "2 days ago" (minutes, hours,
/// days, weeks, months, years). Times are local; a day without a time of day means its beginning. Absent for
/// anything else and for days that no calendar has.
std::optional<std::int64_t> timeNamed(std::string_view text, std::time_t now);

}  // namespace keldane
