// What a file manager's extension interface has no words for, put right in the menu itself.
#pragma once

namespace keldane {

/// What an item is called that is to be a separator.
inline constexpr char kSeparatorLabel[] = "-";

/// From now on, when a submenu of this host is shown, its items named "-" become separators, and those that
/// cannot be chosen look and act so. For GTK 3 file managers whose extensions cannot say either. Once a
/// process; the toolkit's thread.
void touchUpMenus();

/// The label of an item that cannot be chosen, so that the touch-up finds it.
void markAsHeading(const char* label);

}  // namespace keldane
