// Sizes, counts, times and dates as people read them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// "0 B", "999 B", "1.5 KiB", "10 MiB": binary units, one decimal below 10. All are in the user's language.
std::string bytesText(std::uint64_t bytes);
/// "1 file", "1,234 files".
std::string filesText(std::uint64_t files);
/// Digits in groups of three.
std::string countText(std::uint64_t count);
/// "5 s", "2 min 5 s", "1 h 4 min", "3 d 2 h"; the smaller unit is left out when it is 0.
std::string durationText(std::chrono::seconds duration);
/// "2026-11-21 15:04" in local time; empty for anything but a date that a calendar holds.
std::string dateText(const PropertyList& date);

}  // namespace keldane
