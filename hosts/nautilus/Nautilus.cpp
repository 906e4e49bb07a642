// The Nautilus extension.
#include "Properties.h"
#include "hosts/family/FamilyHost.h"

namespace keldane {

namespace {

GList* (*gFileItems)(GList*) = nullptr;
GList* (*gBackgroundItems)(FmFileInfo*) = nullptr;

GList* getFileItems(NautilusMenuProvider* /*provider*/, GList* files) { return gFileItems(files); }

}  // namespace

GList* getBackgroundItems(NautilusMenuProvider* /*provider*/, FmFileInfo* folder) {
  return gBackgroundItems(folder);
}

// Nautilus makes its menus from a model that has separators only between sections, and an extension has only
// one section.
FmMenuItem* makeSeparator(const std::string& /*name*/) { return nullptr; }

void addInterfaces(GTypeModule* module, GType type, GList* (*fileItems)(GList*),
                   GList* (*backgroundItems)(FmFileInfo*)) {
  gFileItems = fileItems;
  gBackgroundItems = backgroundItems;
  const GInterfaceInfo info = {[](gpointer interface, gpointer) {
                                 auto* provider = static_cast<NautilusMenuProviderInterface*>(interface);
                                 provider->get_file_items = getFileItems;
                                 provider->get_background_items = getBackgroundItems;
                               },
                               nullptr, nullptr};
  g_type_module_add_interface(module, type, NAUTILUS_TYPE_MENU_PROVIDER, &info);
  addProperties(module, type);
}

}  // namespace keldane

extern "C" {
G_MODULE_EXPORT void nautilus_module_initialize(GTypeModule* module) { keldane::initializeModule(module); }
G_MODULE_EXPORT void nautilus_module_shutdown() { keldane::shutDownModule(); }
G_MODULE_EXPORT void nautilus_module_list_types(const GType** types, int* count) {
  keldane::listTypes(types, count);
}
}
