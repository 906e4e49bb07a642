// The properties that every property list has, whatever its source.
#pragma once

#include <algorithm>

#include "fuzz/Fuzzing.h"

namespace keldane::fuzzing {

using Format = PropertyListSerialization::Format;

inline constexpr std::size_t kLongestDescription =
    (std::size_t{1} << 20) + 3;  // plus three bytes that mean "more"

inline Bytes written(const PropertyList& value, Format format) {
  std::string error;
  const auto bytes = PropertyListSerialization::dataFromPropertyList(value, format, &error);
  require(bytes.has_value() == error.empty(), "a writer answers bytes or a sentence");
  return bytes.value_or(Bytes());
}

inline PropertyList readBack(const Bytes& bytes, Format expected) {
  std::string error;
  Format format{};
  PropertyList value = PropertyListSerialization::propertyListFromData(bytes, &error, &format);
  require(value && error.empty() && format == expected, "what was written is read");
  return value;
}

/// Checks that texts are UTF-8, that conversions give the documented results, and that members can be found.
inline void checkParts(const PropertyList& value) {
  if (value.isString()) {
    require(isValidUtf8(value.string()), "text that was read is UTF-8");
    require(value.string().data()[value.string().size()] == '\0', "a NUL follows text");
  }
  const std::int64_t integer = value.longLongValue();
  const double real = value.doubleValue();
  if (value.isNumber() && value.numberKind() == PropertyList::NumberKind::real) {
    require(value.charValue() == std::clamp<std::int64_t>(integer, -128, 127), "a real saturates");
    require(std::abs(real) > 1e18 || std::isnan(real) || integer == static_cast<std::int64_t>(real),
            "a real is truncated");
  } else if (!value.isString()) {
    require(value.charValue() == static_cast<signed char>(integer), "an integer is reduced");
    require(value.boolValue() == (integer != 0), "zero is false");
  }
  for (std::size_t i = 0; i < value.count(); ++i) {
    const auto [key, member] = value.isArray() ? PropertyList::Entry("", value[i]) : value.entry(i);
    require(value.isArray() || value[key.string()].identical(member), "an entry is found under its key");
    checkParts(member);
  }
}

/// Checks that a value is the same after writing and reading, and that writing it again gives the same bytes.
inline void checkRoundTrips(const PropertyList& value) {
  const std::string description = value.description();
  require(description.size() <= kLongestDescription, "a description has an end");
  const Bytes binary = written(value, Format::binary);
  const PropertyList again = readBack(binary, Format::binary);
  require(again.description() == description, "a value reads as what was written");
  require(written(again, Format::binary) == binary, "a value is always written alike");
  if (description.size() > std::size_t{1} << 14) {
    return;  // shared values are written once for each of their places
  }
  checkParts(value);
  const Bytes xml = written(value, Format::xml);
  if (!xml.empty()) {
    // The first pass may replace characters that XML cannot hold, and that may make two keys equal.
    const Bytes second = written(readBack(xml, Format::xml), Format::xml);
    require(written(readBack(second, Format::xml), Format::xml) == second, "XML is written alike");
  }
}

}  // namespace keldane::fuzzing
