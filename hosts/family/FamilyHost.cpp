// The host for three related file managers whose extension interfaces differ only in their names. The folder
// of each file manager has its names.
//
// All three ask for a menu's items whenever the selection changes, several times over, and keep the answer.
// When a menu is about to be opened, they are told that the items have changed, and then they ask again.
#include "hosts/family/FamilyHost.h"

#include "hosts/family/Status.h"
#include "hosts/gtk/StatusHost.h"
#include "hosts/gtk/menu/MenuItems.h"

namespace keldane {

namespace {

GType gProviderTypes[1];
gpointer gProvider = nullptr;  // made by the file manager

struct Library {
  static GFile* location(gpointer file) { return FM(file_info_get_location)(FM_FILE_INFO(file)); }
  static gpointer item(const char* name, const char* label, const char* icon) {
    return FM(menu_item_new)(name, label, "", icon);
  }
  static gpointer separator(const std::string& name) { return makeSeparator(name); }
  static gpointer submenu() { return FM(menu_new)(); }
  static void append(gpointer submenu, gpointer item) {
    FM(menu_append_item)(static_cast<FmMenu*>(submenu), static_cast<FmMenuItem*>(item));
  }
  static void attach(gpointer item, gpointer submenu) {
    FM(menu_item_set_submenu)(static_cast<FmMenuItem*>(item), static_cast<FmMenu*>(submenu));
  }
  static void heading(const char* /*label*/) {}
};

// The file manager also asks for these items when it begins to show a folder.
GList* backgroundItems(FmFileInfo* folder) {
  GFile* location = Library::location(folder);
  folderIsOpened(location);
  g_object_unref(location);
  return MenuItems<Library>::forBackground(folder);
}

void tellThatItemsChanged() {
  if (gProvider != nullptr) {
    FM(menu_provider_emit_items_updated_signal)(FM_MENU_PROVIDER(gProvider));
  }
}

void initProvider(GTypeInstance* instance, gpointer /*type*/) {
  gProvider = instance;
  g_object_add_weak_pointer(G_OBJECT(instance), &gProvider);
}

}  // namespace

void initializeModule(GTypeModule* module) {
  const GTypeInfo type = menuProviderType(initProvider);
  gProviderTypes[0] = g_type_module_register_type(module, G_TYPE_OBJECT, kMenuProviderName, &type,
                                                  static_cast<GTypeFlags>(0));
  addInterfaces(module, gProviderTypes[0], MenuItems<Library>::forFiles, backgroundItems);
  addStatusInterfaces(module, gProviderTypes[0]);
  beginHost(tellThatItemsChanged);
}

void shutDownModule() { endStatus(); }

void listTypes(const GType** types, int* count) {
  *types = gProviderTypes;
  *count = 1;
}

}  // namespace keldane
