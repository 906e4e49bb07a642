// A menu as a plug-in described it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/events/AppleEvents.h"

namespace keldane {

struct MenuItem {
  std::string title;                        ///< empty when the item has none
  std::uint32_t command = 0;                ///< 0 when the item has none
  std::size_t commandSize = 0;              ///< bytes of the descriptor that held the number
  std::optional<std::uint32_t> attributes;  ///< absent when the item carries none
  std::vector<MenuItem> items;              ///< the items of the submenu; empty when the item has none

  bool isSeparator() const { return title == "-"; }
  /// Whether the user can choose it.
  bool isChoosable() const;
};

/// The items of a command list, submenus included. A part that an item lacks, or that cannot be read, is
/// empty or absent in the result.
std::vector<MenuItem> readMenu(const AEDescList& commandList);

}  // namespace keldane
