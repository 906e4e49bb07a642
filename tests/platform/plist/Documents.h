// Property lists as bytes.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/plist/PropertyListSerialization.h"

namespace keldane::testing {

using Format = PropertyListSerialization::Format;

inline Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

inline PropertyList read(const Bytes& bytes, std::string* error = nullptr, Format* format = nullptr) {
  return PropertyListSerialization::propertyListFromData(bytes, error, format);
}
inline PropertyList readText(std::string_view text, std::string* error = nullptr) {
  return read(bytesOf(text), error);
}

inline Bytes binary(const PropertyList& value) {
  std::string error;
  const auto bytes = PropertyListSerialization::dataFromPropertyList(value, Format::binary, &error);
  EXPECT_TRUE(bytes) << error;
  return bytes.value_or(Bytes());
}

inline std::string hex(const Bytes& bytes, std::size_t from, std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = from; i < from + count && i < bytes.size(); ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

/// A document: the objects, the offset table and the trailer.
inline Bytes document(const std::vector<std::string>& objects, std::uint64_t top = 0,
                      std::uint8_t referenceSize = 1) {
  Bytes bytes = bytesOf("bplist00");
  std::vector<std::uint8_t> offsets;
  for (const std::string& object : objects) {
    offsets.push_back(static_cast<std::uint8_t>(bytes.size()));
    bytes.insert(bytes.end(), object.begin(), object.end());
  }
  const std::uint64_t table = bytes.size();
  bytes.insert(bytes.end(), offsets.begin(), offsets.end());
  bytes.insert(bytes.end(), 6, 0);
  bytes.push_back(1);
  bytes.push_back(referenceSize);
  for (const std::uint64_t number : {std::uint64_t{objects.size()}, top, table}) {
    for (int shift = 56; shift >= 0; shift -= 8) {
      bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
  }
  return bytes;
}

/// One value of every kind.
inline PropertyList sample() {
  const std::uint8_t data[] = {0, 1, 2, 250};
  return PropertyList::dictionary(
      {{"name", "Ünïcode 😀"},
       {"count", 12},
       {"size", std::uint64_t{1} << 40},
       {"negative", -5},
       {"flag", true},
       {"real", 2.25},
       {"date", Date{123456789}},
       {"data", PropertyList::data(data)},
       {"list", PropertyList::array({"a", PropertyList::dictionary({{"x", "y"}}), 3})}});
}

}  // namespace keldane::testing
