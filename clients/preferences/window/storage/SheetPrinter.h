// Prints the page with the key.
#pragma once

#include <gtkmm/window.h>

#include "clients/core/key/KeySheet.h"

namespace keldane {

/// Shows the desktop's dialog for printing over the window and prints the sheet; what went wrong is told by
/// the answer, a sentence, empty when nothing did or nobody wanted to print. `printed` says whether it was.
std::string printKeySheet(Gtk::Window& window, const KeySheet& sheet, bool& printed);

}  // namespace keldane
