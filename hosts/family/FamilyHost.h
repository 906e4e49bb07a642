// What the family's shared code and each one's own have of each other.
#pragma once

#include <string>

#include "Names.h"

namespace keldane {

// Each file manager's own:

/// Null: there is none of its kind here.
FmMenuItem* makeSeparator(const std::string& name);
/// Makes the type a provider of menus, whose items `fileItems` makes for a list of the file manager's file
/// information and `backgroundItems` for that of a folder.
void addInterfaces(GTypeModule* module, GType type, GList* (*fileItems)(GList*),
                   GList* (*backgroundItems)(FmFileInfo*));

// The shared code's, behind the module's entry points:

void initializeModule(GTypeModule* module);
void shutDownModule();
void listTypes(const GType** types, int* count);

}  // namespace keldane
