// Prints the page with the key.
#pragma once

#include <gtkmm/window.h>

#include "clients/core/key/KeySheet.h"

namespace keldane {

/// Shows the desktop's print dialog over the window and prints the sheet. Returns a sentence about a failure;
/// it is empty on success and when the person cancelled. `printed` says whether the sheet was printed.
std::string printKeySheet(Gtk::Window& window, const KeySheet& sheet, bool& printed);

}  // namespace keldane
