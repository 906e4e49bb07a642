// The JSON that the command-line programs print.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Converts a value. Dates become ISO 8601 text in UTC, data becomes hexadecimal text, and an absent value
/// becomes null. A container below the 16th level becomes its text description; a real answer of a daemon is
/// never so deep.
nlohmann::ordered_json jsonValue(const PropertyList& value);

/// The JSON in one line. Bytes that are not UTF-8 are replaced.
std::string jsonLine(const nlohmann::ordered_json& value);

}  // namespace keldane
