// The JSON files of docs/protocol: tables and golden frames, read for the tests.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane::testing {

using Json = nlohmann::ordered_json;

inline Json referenceFile(const std::string& name) {
  std::ifstream stream(std::string(KELDANE_PROTOCOL_FOLDER) + "/" + name);
  EXPECT_TRUE(stream) << name;
  return Json::parse(stream);
}

/// The bytes of a golden frame, which stand in several lines of hexadecimal digits.
inline Bytes bytesOf(const Json& frame) {
  std::string digits;
  for (const Json& line : frame["bytes"]) {
    digits += line.get<std::string>();
  }
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

inline PropertyList dateNamed(const std::string& text) {
  std::tm parts{};
  EXPECT_NE(strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts), nullptr) << text;
  return Date::fromUnixTime(static_cast<double>(timegm(&parts)));
}

/// The value that JSON writes down: {"$date": …} and {"$data": hexadecimal digits} stand for what JSON lacks.
inline PropertyList valueOf(const Json& json) {
  if (json.is_null()) {
    return {};
  }
  if (json.is_array()) {
    PropertyList::Array elements;
    for (const Json& element : json) {
      elements.push_back(valueOf(element));
    }
    return PropertyList::array(std::move(elements));
  }
  if (json.is_object()) {
    if (json.contains("$date")) {
      return dateNamed(json["$date"]);
    }
    if (json.contains("$data")) {
      return PropertyList::data(bytesOf({{"bytes", Json::array({json["$data"]})}}));
    }
    PropertyList::Entries entries;
    for (const auto& [key, value] : json.items()) {
      entries.emplace_back(key, valueOf(value));
    }
    return PropertyList::dictionary(std::move(entries));
  }
  return json.is_string()            ? PropertyList(json.get<std::string>())
         : json.is_boolean()         ? PropertyList(json.get<bool>())
         : json.is_number_float()    ? PropertyList(json.get<double>())
         : json.is_number_unsigned() ? PropertyList(json.get<std::uint64_t>())
                                     : PropertyList(json.get<std::int64_t>());
}

}  // namespace keldane::testing
