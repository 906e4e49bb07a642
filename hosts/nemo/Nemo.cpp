// The Nemo extension.
#include "hosts/family/FamilyHost.h"
#include "hosts/family/PropertyPages.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

GList* (*gFileItems)(GList*) = nullptr;
GList* (*gBackgroundItems)(FmFileInfo*) = nullptr;

GList* getFileItems(NemoMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  return gFileItems(files);
}

GList* getBackgroundItems(NemoMenuProvider* /*provider*/, GtkWidget* /*window*/, FmFileInfo* folder) {
  return gBackgroundItems(folder);
}

GList* getNameAndDescription(NemoNameAndDescProvider* /*provider*/) {
  return g_list_append(nullptr, g_strdup_printf("Keldane:::%s", tr("Shows whether files are backed up")));
}

}  // namespace

FmMenuItem* makeSeparator(const std::string& name) { return nemo_menu_item_new_separator(name.c_str()); }

void addInterfaces(GTypeModule* module, GType type, GList* (*fileItems)(GList*),
                   GList* (*backgroundItems)(FmFileInfo*)) {
  gFileItems = fileItems;
  gBackgroundItems = backgroundItems;
  const GInterfaceInfo menus = {[](gpointer interface, gpointer) {
                                  auto* provider = static_cast<NemoMenuProviderIface*>(interface);
                                  provider->get_file_items = getFileItems;
                                  provider->get_background_items = getBackgroundItems;
                                },
                                nullptr, nullptr};
  g_type_module_add_interface(module, type, NEMO_TYPE_MENU_PROVIDER, &menus);
  addPropertyPages(module, type);
  // Nemo lists the extension under this name, so that the user can switch it off.
  const GInterfaceInfo description = {
      [](gpointer interface, gpointer) {
        static_cast<NemoNameAndDescProviderIface*>(interface)->get_name_and_desc = getNameAndDescription;
      },
      nullptr, nullptr};
  g_type_module_add_interface(module, type, NEMO_TYPE_NAME_AND_DESC_PROVIDER, &description);
}

}  // namespace keldane

extern "C" {
G_MODULE_EXPORT void nemo_module_initialize(GTypeModule* module) { keldane::initializeModule(module); }
G_MODULE_EXPORT void nemo_module_shutdown() { keldane::shutDownModule(); }
G_MODULE_EXPORT void nemo_module_list_types(const GType** types, int* count) {
  keldane::listTypes(types, count);
}
}
