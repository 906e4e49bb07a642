// The interface between the family's shared code and the code of each file manager.
#pragma once

#include <string>

#include "Names.h"

namespace keldane {

// Each file manager implements these:

/// Null when the file manager has no separators.
FmMenuItem* makeSeparator(const std::string& name);
/// Makes the type a provider of menus. `fileItems` makes the items for a list of the file manager's file
/// information, `backgroundItems` those for the background of a folder.
void addInterfaces(GTypeModule* module, GType type, GList* (*fileItems)(GList*),
                   GList* (*backgroundItems)(FmFileInfo*));

// The shared code implements these for the module's entry points:

void initializeModule(GTypeModule* module);
void shutDownModule();
void listTypes(const GType** types, int* count);

}  // namespace keldane
