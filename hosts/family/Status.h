// Emblems and columns, in the three relatives.
#pragma once

#include <glib-object.h>

namespace keldane {

/// Makes the type a provider of information on files and of columns, and begins to ask the daemon for it.
void addStatusInterfaces(GTypeModule* module, GType type);

}  // namespace keldane
