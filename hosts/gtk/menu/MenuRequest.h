// Tells that the user is about to open a context menu, before the file manager makes it.
#pragma once

#include <functional>

namespace keldane {

/// Calls back on each event that opens a context menu in any window of the process, before the window
/// receives it. Such events are a right click, the Menu key, Shift+F10, and a touch that may become a long
/// one. This is for file managers that ask for a menu's items at every change of the selection: the daemon is
/// asked only for a menu that is about to be shown. To be called once in a process, on the toolkit's thread.
void onMenuRequest(std::function<void()> callback);

}  // namespace keldane
