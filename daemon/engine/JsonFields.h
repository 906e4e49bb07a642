// Fields of what another program wrote as JSON: whatever is not as expected reads as empty.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace keldane {

using Json = nlohmann::json;

/// Discarded, which is no object or array, when the text is no JSON.
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
