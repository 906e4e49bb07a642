#include "cli/Json.h"

#include <cmath>
#include <ctime>

namespace keldane {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kDeepest = 16;

Json jsonNumber(const PropertyList& number) {
  switch (number.numberKind()) {
    case PropertyList::NumberKind::boolean:
      return number.boolValue();
    case PropertyList::NumberKind::signedInteger:
      return number.longLongValue();
    case PropertyList::NumberKind::unsignedInteger:
      return number.unsignedLongLongValue();
    case PropertyList::NumberKind::real:
      return number.doubleValue();
  }
  return nullptr;
}

// Null for a date that is outside of the calendar.
Json jsonDate(Date date) {
  const double seconds = std::floor(date.unixTime());
  if (!(std::abs(seconds) < 1e15)) {
    return nullptr;
  }
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  if (gmtime_r(&time, &parts) == nullptr) {
    return nullptr;
  }
  char text[64];
  return std::string(text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts));
}

Json jsonData(BytesView bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

Json jsonAtDepth(const PropertyList& value, int depth) {
  switch (value.kind()) {
    case PropertyList::Kind::absent:
      return nullptr;
    case PropertyList::Kind::string:
      return value.string();
    case PropertyList::Kind::number:
      return jsonNumber(value);
    case PropertyList::Kind::date:
      return jsonDate(value.date());
    case PropertyList::Kind::data:
      return jsonData(value.data());
    case PropertyList::Kind::array:
    case PropertyList::Kind::dictionary:
      break;
  }
  if (depth == kDeepest) {
    return value.description();
  }
  Json json = value.isArray() ? Json::array() : Json::object();
  for (std::size_t i = 0; i < value.count(); ++i) {
    if (value.isArray()) {
      json.push_back(jsonAtDepth(value[i], depth + 1));
    } else {
      const auto [key, entry] = value.entry(i);
      json[std::string(key.isString() ? key.string() : key.description())] = jsonAtDepth(entry, depth + 1);
    }
  }
  return json;
}

}  // namespace

Json jsonValue(const PropertyList& value) { return jsonAtDepth(value, 0); }

std::string jsonLine(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace keldane
