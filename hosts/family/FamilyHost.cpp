// The host of one of three relatives, whose extension interfaces differ in their names alone. Each one's
// folder has the names.
//
// All three ask for a menu's items whenever the selection changes, several times over, and keep what they
// got. When a menu is about to be opened they are told that items have changed, and ask once more.
#include "hosts/family/FamilyHost.h"

#include "hosts/family/Status.h"
#include "hosts/gtk/MenuItems.h"
#include "hosts/gtk/StatusHost.h"

namespace keldane {

namespace {

GType gProviderTypes[1];
gpointer gProvider = nullptr;  // the file manager makes one

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

// They are asked for when a folder begins to be shown, too.
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
