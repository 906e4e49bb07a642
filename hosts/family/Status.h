// The emblems and columns in the three file managers of the family.
#pragma once

#include <glib-object.h>

namespace keldane {

/// Makes the type a provider of file information and of columns, and starts the status service.
void addStatusInterfaces(GTypeModule* module, GType type);

}  // namespace keldane
