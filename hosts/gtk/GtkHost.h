// What the file managers of the GTK world have in common.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/MenuService.h"

namespace keldane {

/// The paths of a selection: those that are no UTF-8 are left out. Absent when an item has no place in the
/// local file system, and when nothing is left.
std::optional<std::vector<std::string>> localPaths(const std::vector<GFile*>& files);

/// A title as a label in which an underscore would mark the key that chooses it.
std::string labelFor(const std::string& title);

/// The service of this process, made with the first call and never taken down: the thread of the plug-in may
/// be stuck when the file manager ends.
MenuService& menuService();

/// The menu to show in place of one that did not come in time.
std::shared_ptr<const OfferedMenu> notRespondingMenu();

/// The icon beside the title.
inline constexpr char kIconName[] = "keldane";

}  // namespace keldane
