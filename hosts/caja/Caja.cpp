// The Caja extension.
#include "hosts/family/FamilyHost.h"
#include "hosts/family/PropertyPages.h"
#include "hosts/gtk/menu/MenuTouchUp.h"

namespace keldane {

namespace {

GList* (*gFileItems)(GList*) = nullptr;
GList* (*gBackgroundItems)(FmFileInfo*) = nullptr;

GList* getFileItems(CajaMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  return gFileItems(files);
}

GList* getBackgroundItems(CajaMenuProvider* /*provider*/, GtkWidget* /*window*/, FmFileInfo* folder) {
  return gBackgroundItems(folder);
}

}  // namespace

// Caja's extension interface has no separators. The touch-up turns this item into one.
FmMenuItem* makeSeparator(const std::string& name) {
  return caja_menu_item_new(name.c_str(), kSeparatorLabel, "", nullptr);
}

void addInterfaces(GTypeModule* module, GType type, GList* (*fileItems)(GList*),
                   GList* (*backgroundItems)(FmFileInfo*)) {
  gFileItems = fileItems;
  gBackgroundItems = backgroundItems;
  const GInterfaceInfo info = {[](gpointer interface, gpointer) {
                                 auto* provider = static_cast<CajaMenuProviderIface*>(interface);
                                 provider->get_file_items = getFileItems;
                                 provider->get_background_items = getBackgroundItems;
                               },
                               nullptr, nullptr};
  g_type_module_add_interface(module, type, CAJA_TYPE_MENU_PROVIDER, &info);
  addPropertyPages(module, type);
  touchUpMenus();
}

}  // namespace keldane

extern "C" {
G_MODULE_EXPORT void caja_module_initialize(GTypeModule* module) { keldane::initializeModule(module); }
G_MODULE_EXPORT void caja_module_shutdown() { keldane::shutDownModule(); }
G_MODULE_EXPORT void caja_module_list_types(const GType** types, int* count) {
  keldane::listTypes(types, count);
}
}
