// The text and JSON forms of a menu and its commands.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "hosts/core/Menu.h"
#include "platform/host/FourCharCode.h"

namespace keldane {

/// Reads a name such as "backup", a four-character code with or without quotes, or a number, decimal or as
/// 0x….
std::optional<std::uint32_t> commandNamed(const std::string& text);

/// The code of four characters; absent for any other text.
std::optional<OSType> fourCharCodeNamed(const std::string& text);

/// The titles, indented by their depth. A separator is ---, an item that cannot be chosen stands in
/// parentheses, and one that can be chosen is followed by its command.
std::string menuText(const std::vector<MenuItem>& menu);

/// The menu as JSON: "title", "command", "commandSize" and "attributes" for each item, and "items" for the
/// outermost. Null for an empty menu.
nlohmann::ordered_json menuJson(const std::vector<MenuItem>& menu);

}  // namespace keldane
