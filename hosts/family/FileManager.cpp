// The host of one of three relatives, whose extension interfaces differ in their names alone. Each one's
// folder has the names.
//
// All three ask for a menu's items whenever the selection changes, several times over, and keep what they
// got. When a menu is about to be opened they are told that items have changed, and ask once more.
#include "hosts/family/FileManager.h"

#include "hosts/gtk/GtkHost.h"

namespace keldane {

namespace {

struct Provider {
  GObject parent;
};
struct ProviderClass {
  GObjectClass parent;
};

GType gProviderTypes[1];
Provider* gProvider = nullptr;  // the file manager makes one
FmMenuItem* makeItem(const MenuItem& item, const std::string& name, const Menu& menu) {
  const std::string label = labelFor(item.title);
  FmMenuItem* made = FM(menu_item_new)(name.c_str(), label.c_str(), "", nullptr);
  if (!item.isChoosable() || item.command == 0) {
    g_object_set(made, "sensitive", FALSE, nullptr);
  } else {
    connectItem(made, menu, item.command);
  }
  return made;
}

/// The title with its submenu.
FmMenuItem* makeTop(const MenuItem& top, const std::string& name, const Menu& menu) {
  const std::string label = labelFor(top.title);
  FmMenuItem* made = FM(menu_item_new)(name.c_str(), label.c_str(), "", kIconName);
  if (top.items.empty()) {
    g_object_set(made, "sensitive", FALSE, nullptr);
    return made;
  }
  FmMenu* submenu = FM(menu_new)();
  int number = 0;
  for (const MenuItem& item : top.items) {
    const std::string itemName = name + "." + std::to_string(number++);
    FmMenuItem* child = item.isSeparator() ? makeSeparator(itemName) : makeItem(item, itemName, menu);
    if (child != nullptr) {
      FM(menu_append_item)(submenu, child);
      g_object_unref(child);
    }
  }
  FM(menu_item_set_submenu)(made, submenu);
  g_object_unref(submenu);
  return made;
}

GList* makeItems(const Menu& menu) {
  GList* items = nullptr;
  for (std::size_t i = menu->items.size(); i-- > 0;) {
    items = g_list_prepend(items, makeTop(menu->items[i], "Keldane::" + std::to_string(i), menu));
  }
  return items;
}

GList* fileItems(GList* files) {
  std::vector<GFile*> locations;
  for (GList* file = files; file != nullptr; file = file->next) {
    locations.push_back(FM(file_info_get_location)(FM_FILE_INFO(file->data)));
  }
  const Menu menu = menuToShow(locations);
  for (GFile* location : locations) {
    g_object_unref(location);
  }
  return menu ? makeItems(menu) : nullptr;
}

void tellThatItemsChanged() {
  if (gProvider != nullptr) {
    FM(menu_provider_emit_items_updated_signal)(FM_MENU_PROVIDER(gProvider));
  }
}

void initProvider(GTypeInstance* instance, gpointer /*type*/) {
  gProvider = reinterpret_cast<Provider*>(instance);
  g_object_add_weak_pointer(G_OBJECT(instance), reinterpret_cast<gpointer*>(&gProvider));
}

}  // namespace

void initializeModule(GTypeModule* module) {
  const GTypeInfo info = {sizeof(ProviderClass), nullptr, nullptr,      nullptr, nullptr, nullptr,
                          sizeof(Provider),      0,       initProvider, nullptr};
  gProviderTypes[0] = g_type_module_register_type(module, G_TYPE_OBJECT, "KeldaneMenuProvider", &info,
                                                  static_cast<GTypeFlags>(0));
  addInterfaces(module, gProviderTypes[0], fileItems);
  beginHost(tellThatItemsChanged);
}

void listTypes(const GType** types, int* count) {
  *types = gProviderTypes;
  *count = 1;
}

}  // namespace keldane
