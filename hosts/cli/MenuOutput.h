// A menu and its commands as people and programs read and write them.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "hosts/core/Menu.h"
#include "platform/host/FourCharCode.h"

namespace keldane {

/// "backup" and its like, a four-character code with or without quotes, or a number, decimal or 0x….
std::optional<std::uint32_t> commandNamed(const std::string& text);

/// Four characters; absent for anything else.
std::optional<OSType> fourCharCodeNamed(const std::string& text);

/// Titles indented by their depth, separators as ---, what cannot be chosen in parentheses, what can with its
/// command.
std::string menuText(const std::vector<MenuItem>& menu);

/// {"title", "command", "commandSize", "attributes"} and "items" for the outermost; null for an empty menu.
nlohmann::ordered_json menuJson(const std::vector<MenuItem>& menu);

}  // namespace keldane
