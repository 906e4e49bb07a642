// The page "Backup" in the properties, in the two relatives of GTK 3.
#pragma once

#include <glib-object.h>

namespace keldane {

/// Makes the type a provider of property pages.
void addPropertyPages(GTypeModule* module, GType type);

}  // namespace keldane
