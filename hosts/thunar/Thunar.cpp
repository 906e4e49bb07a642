// The Thunar extension. Thunar asks for a menu's items once, when it is about to show them, and cannot be
// told later that they changed.
#include <glib-object.h>
#include <gtk/gtk.h>
G_BEGIN_DECLS
#include <thunarx/thunarx.h>
G_END_DECLS

#include "hosts/gtk/GtkHost.h"
#include "hosts/gtk/MenuTouchUp.h"

namespace keldane {

namespace {

struct Provider {
  GObject parent;
};
struct ProviderClass {
  GObjectClass parent;
};

GType gProviderTypes[1];

ThunarxMenuItem* makeItem(const MenuItem& item, const std::string& name, const Menu& menu) {
  const std::string label = labelFor(item.title);
  ThunarxMenuItem* made = thunarx_menu_item_new(name.c_str(), label.c_str(), "", nullptr);
  if (!item.isChoosable() || item.command == 0) {
    // Thunar heeds this outside submenus only.
    thunarx_menu_item_set_sensitive(made, FALSE);
    if (!item.isSeparator()) {
      markAsHeading(label.c_str());
    }
  } else {
    connectItem(made, menu, item.command);
  }
  return made;
}

ThunarxMenuItem* makeTop(const MenuItem& top, const std::string& name, const Menu& menu) {
  const std::string label = labelFor(top.title);
  ThunarxMenuItem* made = thunarx_menu_item_new(name.c_str(), label.c_str(), "", kIconName);
  if (top.items.empty()) {
    thunarx_menu_item_set_sensitive(made, FALSE);
    return made;
  }
  ThunarxMenu* submenu = thunarx_menu_new();
  int number = 0;
  for (const MenuItem& item : top.items) {
    ThunarxMenuItem* child = makeItem(item, name + "." + std::to_string(number++), menu);
    thunarx_menu_append_item(submenu, child);
    g_object_unref(child);
  }
  thunarx_menu_item_set_menu(made, submenu);
  g_object_unref(submenu);
  return made;
}

GList* getFileMenuItems(ThunarxMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  std::vector<GFile*> locations;
  for (GList* file = files; file != nullptr; file = file->next) {
    locations.push_back(thunarx_file_info_get_location(THUNARX_FILE_INFO(file->data)));
  }
  const Menu menu = menuToShow(locations);
  for (GFile* location : locations) {
    g_object_unref(location);
  }
  if (!menu) {
    return nullptr;
  }
  GList* items = nullptr;
  for (std::size_t i = menu->items.size(); i-- > 0;) {
    items = g_list_prepend(items, makeTop(menu->items[i], "Keldane::" + std::to_string(i), menu));
  }
  return items;
}

}  // namespace

}  // namespace keldane

extern "C" {
G_MODULE_EXPORT void thunar_extension_initialize(ThunarxProviderPlugin* plugin) {
  using namespace keldane;
  const GTypeInfo info = {sizeof(ProviderClass), nullptr, nullptr, nullptr, nullptr, nullptr,
                          sizeof(Provider),      0,       nullptr, nullptr};
  gProviderTypes[0] = thunarx_provider_plugin_register_type(plugin, G_TYPE_OBJECT, "KeldaneMenuProvider",
                                                            &info, static_cast<GTypeFlags>(0));
  const GInterfaceInfo menus = {[](gpointer interface, gpointer) {
                                  static_cast<ThunarxMenuProviderIface*>(interface)->get_file_menu_items =
                                      getFileMenuItems;
                                },
                                nullptr, nullptr};
  thunarx_provider_plugin_add_interface(plugin, gProviderTypes[0], THUNARX_TYPE_MENU_PROVIDER, &menus);
  touchUpMenus();
  beginHost(nullptr);
}
G_MODULE_EXPORT void thunar_extension_shutdown() {}
G_MODULE_EXPORT void thunar_extension_list_types(const GType** types, int* count) {
  *types = keldane::gProviderTypes;
  *count = 1;
}
}
