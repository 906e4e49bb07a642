// The group "Backup" in the properties, in Nautilus.
#pragma once

#include <glib-object.h>

namespace keldane {

/// Makes the type a provider of texts for the properties.
void addProperties(GTypeModule* module, GType type);

}  // namespace keldane
