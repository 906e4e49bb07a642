// JSON as the command-line programs print it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Dates become ISO 8601 text in UTC, data hexadecimal text, absent null. What lies deeper than a few levels,
/// which no answer of a daemon does in earnest, becomes its description.
nlohmann::ordered_json jsonValue(const PropertyList& value);

/// One line; text that is not UTF-8 is mended.
std::string jsonLine(const nlohmann::ordered_json& value);

}  // namespace keldane
