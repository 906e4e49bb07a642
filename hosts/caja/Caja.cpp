// The Caja extension.
#include "hosts/family/FamilyHost.h"
#include "hosts/gtk/MenuTouchUp.h"

namespace keldane {

namespace {

GList* (*gFileItems)(GList*) = nullptr;

GList* getFileItems(CajaMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  return gFileItems(files);
}

}  // namespace

// Caja's items know no separators; the touch-up turns this one into one.
FmMenuItem* makeSeparator(const std::string& name) {
  return caja_menu_item_new(name.c_str(), kSeparatorLabel, "", nullptr);
}

void addInterfaces(GTypeModule* module, GType type, GList* (*fileItems)(GList*)) {
  gFileItems = fileItems;
  const GInterfaceInfo info = {[](gpointer interface, gpointer) {
                                 static_cast<CajaMenuProviderIface*>(interface)->get_file_items =
                                     getFileItems;
                               },
                               nullptr, nullptr};
  g_type_module_add_interface(module, type, CAJA_TYPE_MENU_PROVIDER, &info);
  touchUpMenus();
}

}  // namespace keldane

extern "C" {
G_MODULE_EXPORT void caja_module_initialize(GTypeModule* module) { keldane::initializeModule(module); }
G_MODULE_EXPORT void caja_module_shutdown() {}
G_MODULE_EXPORT void caja_module_list_types(const GType** types, int* count) {
  keldane::listTypes(types, count);
}
}
