// All three file managers ask once for each file that they show, and again when they are told that the answer
// is out of date. The answer is given at once, from the known status, because they ask about no other file of
// the folder while they wait for an answer.
#include "hosts/family/Status.h"

#include "Common/DaemonText.h"
#include "hosts/family/FamilyHost.h"
#include "hosts/gtk/StatusHost.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr char kStatus[] = "keldane-backup";
constexpr char kLastBackup[] = "keldane-last-backup";

FmOperationResult updateFileInfo(FmInfoProvider* /*provider*/, FmFileInfo* file, GClosure* /*complete*/,
                                 FmOperationHandle** /*handle*/) {
  GFile* location = FM(file_info_get_location)(file);
  const std::optional<FileStatus> status = statusOfShown(location);
  g_object_unref(location);
  if (status && statusOptions().emblems && status->emblem != Emblem::none) {
    FM(file_info_add_emblem)(file, emblemNameOf(status->emblem).c_str());
  }
  if (status && statusOptions().columns) {
    FM(file_info_add_string_attribute)(file, kStatus, daemonText(status->text).c_str());
    FM(file_info_add_string_attribute)(file, kLastBackup, backupDateText(status->lastBackup).c_str());
  }
  return FM_OPERATION(COMPLETE);
}

void cancelUpdate(FmInfoProvider* /*provider*/, FmOperationHandle* /*handle*/) {}

GList* getColumns(FmColumnProvider* /*provider*/) {
  if (!statusOptions().columns) {
    return nullptr;
  }
  GList* columns = g_list_append(
      nullptr, FM(column_new)(kStatus, kStatus, tr("Backup"), tr("Whether the file is backed up")));
  return g_list_append(columns, FM(column_new)(kLastBackup, kLastBackup, tr("Last backed up"),
                                               tr("When the file was backed up last")));
}

void askAgain(GFile* file) {
  if (gpointer info = FM(file_info_lookup)(file)) {
    FM(file_info_invalidate_extension_info)(FM_FILE_INFO(info));
    g_object_unref(info);
  }
}

bool has(GFile* file) {
  gpointer info = FM(file_info_lookup)(file);
  if (info != nullptr) {
    g_object_unref(info);
  }
  return info != nullptr;
}

}  // namespace

void addStatusInterfaces(GTypeModule* module, GType type) {
  const GInterfaceInfo info = {[](gpointer interface, gpointer) {
                                 auto* provider = static_cast<FmInfoProviderIface*>(interface);
                                 provider->update_file_info = updateFileInfo;
                                 provider->cancel_update = cancelUpdate;
                               },
                               nullptr, nullptr};
  g_type_module_add_interface(module, type, FM_TYPE(INFO_PROVIDER), &info);
  const GInterfaceInfo columns = {[](gpointer interface, gpointer) {
                                    static_cast<FmColumnProviderIface*>(interface)->get_columns = getColumns;
                                  },
                                  nullptr, nullptr};
  g_type_module_add_interface(module, type, FM_TYPE(COLUMN_PROVIDER), &columns);
  beginStatus({askAgain, has});
}

}  // namespace keldane
