// The group "Backup" in the properties of Nautilus.
#pragma once

#include <glib-object.h>

namespace keldane {

/// Makes the type a provider of names and values for the properties.
void addProperties(GTypeModule* module, GType type);

}  // namespace keldane
