#include "clients/core/words/Units.h"

#include <array>
#include <cmath>
#include <ctime>

#include "platform/text/Translation.h"

namespace keldane {

std::string bytesText(std::uint64_t bytes) {
  constexpr std::array kUnits = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  auto number = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (std::round(number) >= 1024) {  // rounding must not show 1024 of a unit
    number /= 1024;
    ++unit;
  }
  const auto tenths = static_cast<std::uint64_t>(std::round(number * 10));
  const bool decimal = unit > 0 && tenths < 100;
  // The process's locale may write numbers in another way than the language of the text around them, so it is
  // not used.
  const std::string digits = decimal ? std::to_string(tenths / 10) + "." + std::to_string(tenths % 10)
                                     : std::to_string(static_cast<std::uint64_t>(std::round(number)));
  return localNumber(digits) + " " + kUnits[unit];
}

std::string countText(std::uint64_t count) {
  std::string text = std::to_string(count);
  for (std::size_t end = text.size(); end > 3;) {
    end -= 3;
    text.insert(end, 1, ',');
  }
  return localNumber(text);
}

std::string filesText(std::uint64_t files) {
  return filled(trn("%s file", "%s files", static_cast<unsigned long>(files)), countText(files));
}

std::string durationText(std::chrono::seconds duration) {
  struct Unit {
    std::int64_t seconds;
    const char* name;
  };
  constexpr std::array<Unit, 4> kUnits = {
      {{86400, marked("%s d")}, {3600, marked("%s h")}, {60, marked("%s min")}, {1, marked("%s s")}}};
  const std::int64_t seconds = duration.count();
  std::size_t unit = 0;
  while (unit + 1 < kUnits.size() && seconds < kUnits[unit].seconds) {
    ++unit;
  }
  const auto part = [](std::int64_t number, const char* name) {
    return filled(tr(name), std::to_string(number));
  };
  std::string text = part(seconds / kUnits[unit].seconds, kUnits[unit].name);
  if (unit + 1 < kUnits.size()) {
    const std::int64_t rest = seconds % kUnits[unit].seconds / kUnits[unit + 1].seconds;
    text += rest > 0 ? " " + part(rest, kUnits[unit + 1].name) : "";
  }
  return text;
}

std::string dateText(const PropertyList& date) {
  const double seconds = std::floor(date.date().unixTime());
  std::tm parts{};
  if (!date.isDate() || !(std::abs(seconds) < 1e15)) {
    return {};
  }
  const auto time = static_cast<std::time_t>(seconds);
  char text[64];
  return localtime_r(&time, &parts) == nullptr
             ? std::string()
             : std::string(text, std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M", &parts));
}

}  // namespace keldane
