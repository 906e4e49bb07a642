// Nautilus takes no widgets here; it shows a list of names and values, and follows the changes of that list.
#include "Properties.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Names.h"
#include "hosts/core/status/FileDetails.h"
#include "hosts/core/status/FileStatus.h"
#include "hosts/gtk/StatusHost.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

void fill(GListStore* list, const Rows& rows) {
  g_list_store_remove_all(list);
  for (const auto& [name, value] : rows) {
    NautilusPropertiesItem* item = nautilus_properties_item_new(name.c_str(), value.c_str());
    g_list_store_append(list, item);
    g_object_unref(item);
  }
}

Rows rowsOf(const FileDetails& details) {
  Rows rows = details.rows;
  for (const StoredVersion& version : details.versions) {
    rows.emplace_back(tr("Stored version"), backupDateText(version.date) + ", " + sizeText(version.size));
  }
  return rows;
}

// The list is released on the window's thread, on which it was made.
void askFor(const std::string& path, GListStore* list) {
  g_object_ref(list);
  statusService().perform([path, list](DaemonLink* link) {
    later([list, rows = rowsOf(askForDetails(link, path, sizeText))] {
      fill(list, rows);
      g_object_unref(list);
    });
  });
}

GList* getModels(NautilusPropertiesModelProvider* /*provider*/, GList* files) {
  if (files == nullptr || files->next != nullptr) {
    return nullptr;
  }
  GFile* location = nautilus_file_info_get_location(NAUTILUS_FILE_INFO(files->data));
  const std::optional<std::string> path = pathOfOwnFile(location);
  g_object_unref(location);
  if (!path) {
    return nullptr;
  }
  GListStore* list = g_list_store_new(NAUTILUS_TYPE_PROPERTIES_ITEM);
  fill(list, {{tr("Status"), tr("Asking the backup daemon…")}});
  askFor(*path, list);
  NautilusPropertiesModel* model = nautilus_properties_model_new(tr("Backup"), G_LIST_MODEL(list));
  g_object_unref(list);
  return g_list_append(nullptr, model);
}

}  // namespace

void addProperties(GTypeModule* module, GType type) {
  const GInterfaceInfo models = {
      [](gpointer interface, gpointer) {
        static_cast<NautilusPropertiesModelProviderInterface*>(interface)->get_models = getModels;
      },
      nullptr, nullptr};
  g_type_module_add_interface(module, type, NAUTILUS_TYPE_PROPERTIES_MODEL_PROVIDER, &models);
}

}  // namespace keldane
