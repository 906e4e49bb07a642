#include "hosts/family/PropertyPages.h"

#include <vector>

#include "hosts/family/FamilyHost.h"
#include "hosts/gtk/BackupPage.h"
#include "hosts/gtk/StatusHost.h"

namespace keldane {

namespace {

GList* getPages(FmPropertyPageProvider* /*provider*/, GList* files) {
  std::vector<GFile*> locations;
  for (GList* file = files; file != nullptr; file = file->next) {
    locations.push_back(FM(file_info_get_location)(FM_FILE_INFO(file->data)));
  }
  GtkWidget* page = makeBackupPage(locations);
  for (GFile* location : locations) {
    g_object_unref(location);
  }
  return page == nullptr ? nullptr
                         : g_list_append(nullptr, FM(property_page_new)("Keldane::Backup",
                                                                        gtk_label_new(pageTitle()), page));
}

// The host shows no widget here. The call is used because it is the first sign that a folder is opened.
GtkWidget* getLocationWidget(FmLocationWidgetProvider* /*provider*/, const char* address,
                             GtkWidget* /*window*/) {
  GFile* folder = g_file_new_for_uri(address);
  folderIsOpened(folder);
  g_object_unref(folder);
  return nullptr;
}

}  // namespace

void addPropertyPages(GTypeModule* module, GType type) {
  const GInterfaceInfo pages = {[](gpointer interface, gpointer) {
                                  static_cast<FmPropertyPageProviderIface*>(interface)->get_pages = getPages;
                                },
                                nullptr, nullptr};
  g_type_module_add_interface(module, type, FM_TYPE(PROPERTY_PAGE_PROVIDER), &pages);
  const GInterfaceInfo widgets = {[](gpointer interface, gpointer) {
                                    static_cast<FmLocationWidgetProviderIface*>(interface)->get_widget =
                                        getLocationWidget;
                                  },
                                  nullptr, nullptr};
  g_type_module_add_interface(module, type, FM_TYPE(LOCATION_WIDGET_PROVIDER), &widgets);
}

}  // namespace keldane
