// What the file managers of the GTK world have in common.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/core/MenuService.h"

namespace keldane {

/// A title as a label in which an underscore would mark the key that chooses it.
std::string labelFor(const std::string& title);

/// What is to be shown, held by whoever shows it.
using Menu = std::shared_ptr<const OfferedMenu>;

/// Has the plug-in asked only when a menu is about to be seen: these file managers ask for items at every
/// change of the selection. `itemsChanged`, if there is such a thing, makes the file manager ask again:
/// before a menu is opened, and when a menu that was waited for has come late. Once a process.
void beginHost(std::function<void()> itemsChanged);

/// The menu for a selection; null when there is nothing to show, or nobody to see it. In place of one that
/// did not come in time stands one that says so.
Menu menuToShow(const std::vector<GFile*>& files);

/// Carries the command out when the item, whose signal "activate" has no further arguments, is chosen. The
/// item holds the menu.
void connectItem(gpointer item, const Menu& menu, std::uint32_t command);

/// The icon beside the title.
inline constexpr char kIconName[] = "keldane";

}  // namespace keldane
