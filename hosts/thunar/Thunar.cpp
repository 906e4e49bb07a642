// The Thunar extension. Thunar asks for a menu's items once, when it is about to show them, and cannot be
// told later that they changed.
#include <glib-object.h>
#include <gtk/gtk.h>
G_BEGIN_DECLS
#include <thunarx/thunarx.h>
G_END_DECLS

#include "hosts/gtk/BackupPage.h"
#include "hosts/gtk/StatusHost.h"
#include "hosts/gtk/menu/MenuItems.h"
#include "hosts/gtk/menu/MenuTouchUp.h"

namespace keldane {

namespace {

GType gProviderTypes[1];

struct Library {
  static GFile* location(gpointer file) { return thunarx_file_info_get_location(THUNARX_FILE_INFO(file)); }
  static gpointer item(const char* name, const char* label, const char* icon) {
    return thunarx_menu_item_new(name, label, "", icon);
  }
  // Thunar's extension interface has no separators. The touch-up turns this item into one.
  static gpointer separator(const std::string& name) { return item(name.c_str(), kSeparatorLabel, nullptr); }
  static gpointer submenu() { return thunarx_menu_new(); }
  static void append(gpointer submenu, gpointer item) {
    thunarx_menu_append_item(THUNARX_MENU(submenu), THUNARX_MENU_ITEM(item));
  }
  static void attach(gpointer item, gpointer submenu) {
    thunarx_menu_item_set_menu(THUNARX_MENU_ITEM(item), THUNARX_MENU(submenu));
  }
  // Thunar ignores the property "sensitive" inside submenus, so the touch-up disables the heading.
  static void heading(const char* label) { markAsHeading(label); }
};

GList* getFileMenuItems(ThunarxMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  return MenuItems<Library>::forFiles(files);
}

GList* getFolderMenuItems(ThunarxMenuProvider* /*provider*/, GtkWidget* /*window*/, ThunarxFileInfo* folder) {
  return MenuItems<Library>::forBackground(folder);
}

GList* getPages(ThunarxPropertyPageProvider* /*provider*/, GList* files) {
  std::vector<GFile*> locations;
  for (GList* file = files; file != nullptr; file = file->next) {
    locations.push_back(Library::location(file->data));
  }
  GtkWidget* content = makeBackupPage(locations);
  for (GFile* location : locations) {
    g_object_unref(location);
  }
  if (content == nullptr) {
    return nullptr;
  }
  GtkWidget* page = thunarx_property_page_new(pageTitle());
  gtk_container_add(GTK_CONTAINER(page), content);
  gtk_widget_show(page);
  return g_list_append(nullptr, page);
}

}  // namespace

}  // namespace keldane

extern "C" {
G_MODULE_EXPORT void thunar_extension_initialize(ThunarxProviderPlugin* plugin) {
  using namespace keldane;
  const GTypeInfo type = menuProviderType(nullptr);
  gProviderTypes[0] = thunarx_provider_plugin_register_type(plugin, G_TYPE_OBJECT, kMenuProviderName, &type,
                                                            static_cast<GTypeFlags>(0));
  const GInterfaceInfo menus = {[](gpointer interface, gpointer) {
                                  auto* provider = static_cast<ThunarxMenuProviderIface*>(interface);
                                  provider->get_file_menu_items = getFileMenuItems;
                                  provider->get_folder_menu_items = getFolderMenuItems;
                                },
                                nullptr, nullptr};
  thunarx_provider_plugin_add_interface(plugin, gProviderTypes[0], THUNARX_TYPE_MENU_PROVIDER, &menus);
  const GInterfaceInfo pages = {[](gpointer interface, gpointer) {
                                  static_cast<ThunarxPropertyPageProviderIface*>(interface)->get_pages =
                                      getPages;
                                },
                                nullptr, nullptr};
  thunarx_provider_plugin_add_interface(plugin, gProviderTypes[0], THUNARX_TYPE_PROPERTY_PAGE_PROVIDER,
                                        &pages);
  touchUpMenus();
  beginStatus({});
  beginHost(nullptr);
}
G_MODULE_EXPORT void thunar_extension_shutdown() { keldane::endStatus(); }
G_MODULE_EXPORT void thunar_extension_list_types(const GType** types, int* count) {
  *types = keldane::gProviderTypes;
  *count = 1;
}
}
