// The page "Backup" in the properties of the two file managers of the family that use GTK 3.
#pragma once

#include <glib-object.h>

namespace keldane {

/// Makes the type a provider of property pages.
void addPropertyPages(GTypeModule* module, GType type);

}  // namespace keldane
