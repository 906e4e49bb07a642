// Carries out the command of the chosen item, and ends the menu cycle.
#include <utility>

#include "KeldaneCMM/Source/Entry.h"
#include "KeldaneCMM/Source/KeldaneCMM.h"
#include "KeldaneCMM/Source/KeldanePlugin.h"
#include "KeldaneCMM/Source/MenuCommands.h"
#include "KeldaneCMM/Source/MenuDescriptors.h"
#include "platform/files/FileManager.h"

namespace keldane {

namespace {

using PathCommand = bool (KeldaneCMM::*)(const std::string&) const;

/// The operation that a command performs on each path; null for the items that do nothing.
PathCommand commandFor(std::uint32_t number) {
  switch (number) {
    case kCommandBackup:
      return &KeldaneCMM::addPathToBackup;
    case kCommandExclude:
      return &KeldaneCMM::removePathFromBackup;
    case kCommandBackupASAP:
      return &KeldaneCMM::backupASAP;
    case kCommandBackupType:
      return &KeldaneCMM::backupFileType;
    case kCommandExcludeType:
      return &KeldaneCMM::excludeFileType;
    default:
      return nullptr;
  }
}

void openPreferences() {
  const PropertyList path = KeldaneCMM::bundle()->objectForInfoDictionaryKey("Prefpane Path");
  // A missing path is passed on; the opener decides what to do with it.
  Workspace::openFile(path.isString() ? std::optional(std::string(path.string())) : std::nullopt);
}

void handleSelection(const KeldaneCMM& module, const AEDesc& context, std::uint32_t number) {
  if (number == kCommandPreferences) {
    openPreferences();
    return;
  }
  // The paths are read from the context again, because the examination does not keep its list.
  const std::vector<std::string> paths = AEDescToNSArray(&context);
  if (const PathCommand command = commandFor(number)) {
    for (const std::string& path : paths) {
      (module.*command)(path);
    }
  }
}

}  // namespace

}  // namespace keldane

using namespace keldane;  // the entries are in no namespace

extern "C" {

OSStatus KeldanePlugin_HandleSelection(void* instance, AEDesc* context, SInt32 command) {
  return guardedEntry<OSStatus>("KeldanePlugin_HandleSelection", kNoErr, [&] {
    logEntry("KeldanePlugin_HandleSelection:");
    const auto& record = *static_cast<const KeldanePluginInstance*>(instance);
    if (context != nullptr && record.module != nullptr) {
      const std::shared_ptr<KeldaneCMM> module = *record.module;
      handleSelection(*module, *context, static_cast<std::uint32_t>(command));
    }
    return kNoErr;
  });
}

void KeldanePlugin_PostMenuCleanup(void* instance) {
  guardedStatus("KeldanePlugin_PostMenuCleanup", [&]() -> OSStatus {
    logEntry("KeldanePlugin_PostMenuCleanup:");
    auto& record = *static_cast<KeldanePluginInstance*>(instance);
    const std::unique_ptr<std::shared_ptr<KeldaneCMM>> module(std::exchange(record.module, nullptr));
    return kNoErr;
  });
}
}
