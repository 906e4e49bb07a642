// Changes to an open menu that a file manager's extension interface cannot express.
#pragma once

namespace keldane {

/// The label of an item that is to become a separator.
inline constexpr char kSeparatorLabel[] = "-";

/// From now on, when a submenu of this host is shown, its items with the label "-" become separators, and its
/// heading becomes insensitive. This is for GTK 3 file managers whose extensions cannot express either. To be
/// called once in a process, on the toolkit's thread.
void touchUpMenus();

/// Sets the label of the item that cannot be chosen, so that the touch-up finds it.
void markAsHeading(const char* label);

}  // namespace keldane
