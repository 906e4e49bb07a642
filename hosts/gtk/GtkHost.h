// The code that the file managers of the GTK world share.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/core/MenuService.h"

namespace keldane {

/// Makes a label from a title. Underscores are doubled, because a single one would mark the key that chooses
/// the item.
std::string labelFor(const std::string& title);

/// A menu that is to be shown. Whoever shows it holds it.
using Menu = std::shared_ptr<const OfferedMenu>;

/// Ensures that the plug-in is asked only when a menu is about to be shown, because these file managers ask
/// for items at every change of the selection. `itemsChanged`, which may be empty, makes the file manager ask
/// again. It is called before a menu is opened, and when a menu has come late. To be called once in a
/// process.
void beginHost(std::function<void()> itemsChanged);

/// The menu for a selection. Null when there is nothing to show, or when no menu is about to be opened. When
/// the menu did not come in time, the result is a menu that says so.
Menu menuToShow(const std::vector<GFile*>& files);

/// Carries out the command when the item is chosen. The item's signal "activate" must have no further
/// arguments. The item holds the menu.
void connectItem(gpointer item, const Menu& menu, std::uint32_t command);

/// The name of the icon beside the title.
inline constexpr char kIconName[] = "keldane";

}  // namespace keldane
