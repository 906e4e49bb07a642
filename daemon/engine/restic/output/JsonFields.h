// Reads fields of JSON that another program wrote. A field that is missing or of another type reads as empty.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace keldane {

using Json = nlohmann::json;

/// The parsed text. Text that is no JSON yields a discarded value, which is neither an object nor an array.
inline Json parsed(std::string_view text) { return Json::parse(text, nullptr, false); }

inline std::string textOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

template <class Number>
Number numberOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_number_integer() ? found->get<Number>() : Number{};
}

}  // namespace keldane
