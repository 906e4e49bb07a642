// Tells that a person is about to see a context menu, before the file manager makes it.
#pragma once

#include <functional>

namespace keldane {

/// Calls back on each event that opens a context menu in any window of the process, before the window gets to
/// see it: a right click, the Menu key, Shift+F10, a touch that may become a long one. For file managers that
/// ask for a menu's items at every change of the selection: only what is about to be shown is worth a
/// question to the daemon. Once a process; the toolkit's thread.
void onMenuRequest(std::function<void()> callback);

}  // namespace keldane
