// Formats with %@ and C conversions. The arguments are checked, never trusted.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// One argument of a format. It remembers its own type. A conversion for another type prints the argument by
/// its own type, so it can never read memory that it should not.
class FormatArgument {
 public:
  using Value = std::variant<std::int64_t, std::uint64_t, double, std::string, PropertyList>;

  template <std::signed_integral Integer>
  FormatArgument(Integer value) : value_(static_cast<std::int64_t>(value)), width_(sizeof(Integer)) {}
  template <std::unsigned_integral Integer>
  FormatArgument(Integer value) : value_(static_cast<std::uint64_t>(value)) {}
  template <std::floating_point Real>
  FormatArgument(Real value) : value_(static_cast<double>(value)) {}
  /// A null pointer prints "(null)".
  FormatArgument(const char* text);
  FormatArgument(std::string_view text) : value_(std::string(text)) {}
  FormatArgument(const std::string& text) : value_(text) {}
  FormatArgument(PropertyList object) : value_(std::move(object)) {}

  const Value& value() const { return value_; }
  /// The bits that a signed integer had before it was widened, for the conversions that print it as unsigned.
  std::uint64_t mask() const { return UINT64_MAX >> (64 - 8 * width_); }

 private:
  Value value_;
  std::size_t width_ = 8;
};

/// Fills a format: %@ %s %d %i %u %x %X %o %c %f %e %g %% with flags, width, precision and the lengths h, hh,
/// l, ll, q, z. A conversion without an argument prints "(null)" (%@, %s) or 0. An unknown conversion is
/// printed literally. Surplus arguments are ignored.
std::string formatWithArguments(std::string_view format, const FormatArgument* arguments, std::size_t count);

template <class... Arguments>
std::string stringWithFormat(std::string_view format, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return formatWithArguments(format, nullptr, 0);
  } else {
    const FormatArgument list[] = {FormatArgument(arguments)...};
    return formatWithArguments(format, list, sizeof...(Arguments));
  }
}

}  // namespace keldane
