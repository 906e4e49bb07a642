// The examination of a selection when a menu is about to be shown. It decides whether there is anything to
// show, asks the daemon and builds the submenu.
#include <new>
#include <string>
#include <vector>

#include "KeldaneCMM/Source/Entry.h"
#include "KeldaneCMM/Source/KeldaneCMM.h"
#include "KeldaneCMM/Source/KeldanePlugin.h"
#include "KeldaneCMM/Source/MenuCommands.h"
#include "KeldaneCMM/Source/MenuDescriptors.h"
#include "log/KeldaneLog.h"
#include "platform/files/FileManager.h"
#include "platform/host/Host.h"
#include "platform/text/Unicode.h"

namespace keldane {

bool gHasAttributeAndModifierKeys = false;

namespace {

using Module = std::shared_ptr<KeldaneCMM>;

/// The results of the questions about a selection.
struct Findings {
  std::uint32_t offers = 0;
  bool someItemBarred = false;
  std::size_t folders = 0;
  bool someFileWithoutPriorityOffer = false;
  bool someFileWithPriorityOffer = false;

  bool offersASAP() const {
    return folders == 0 && !someFileWithoutPriorityOffer && someFileWithPriorityOffer;
  }
};

bool isHostTheFinder() {
  const ProcessSerialNumber current = {kNoProcess, kCurrentProcess};
  ProcessInfoRec info{};
  info.processInfoLength = sizeof(info);
  const OSStatus error = GetProcessInformation(&current, &info);
  if (error != kNoErr) {
    KeldaneCLog("KeldanePlugin_ExamineContext: GetProcessInformation error: %ld.", error);
    return false;
  }
  if (info.processSignature != fourCharCode("MACS") || info.processType != fourCharCode("FNDR")) {
    KeldaneCLog("KeldanePlugin_ExamineContext: Not the Finder!");
    return false;
  }
  return true;
}

/// Whether the backup service is installed and has made its socket here.
bool isServiceThere() {
  const PropertyList path = KeldaneCMM::bundle()->objectForInfoDictionaryKey("DaemonPath");
  if (path.string().empty()) {
    return false;
  }
  if (!FileManager::fileExistsAtPath(std::string(path.string()))) {
    KeldaneCLog("No path");
    return false;
  }
  return true;
}

void examinePath(const KeldaneCMM& module, const std::string& path, Findings& findings) {
  findings.someItemBarred |= module.isPathExcludedFromBackup(path);
  // The answers to these two questions are not used. They are kept so that the daemon receives the same calls
  // as ever: four look-ups and one type question for each file, three look-ups for a folder.
  module.isPathInBackup(path);
  bool isDirectory = false;
  if (FileManager::fileExistsAtPath(path, &isDirectory) && !isDirectory) {
    module.getTypeToggleForPath(path);
    (module.getSetPriorityForPath(path) ? findings.someFileWithPriorityOffer
                                        : findings.someFileWithoutPriorityOffer) = true;
  }
  module.addBackupFlag(&findings.offers, path);
  findings.folders += isDirectory ? 1 : 0;
}

std::string localized(const char* key, const char* value) {
  return KeldaneCMM::bundle()->localizedStringForKey(key, value);
}

/// Makes a title of valid text, because the strings tables and the daemon may give any bytes. The result is
/// never null. When there is no memory it throws std::bad_alloc, because no menu is better than one with an
/// empty item.
CFOwner<CFStringRef> titleFrom(const std::string& text) {
  const std::string valid = validUtf8(text);
  CFOwner<CFStringRef> title(CFStringCreateWithBytes(kCFAllocatorSystemDefault, valid.data(), valid.size()));
  if (!title) {
    throw std::bad_alloc();
  }
  return title;
}

void addItem(AEDescList* items, const std::string& title, std::uint32_t command,
             MenuItemAttributes attributes = 0) {
  Command_AddToAEDescList(titleFrom(title).get(), command, attributes, items);
}

void addStatus(AEDescList* items, const KeldaneCMM& module, const std::vector<std::string>& paths) {
  if (paths.size() > 1) {
    addItem(items, stringWithFormat(localized("Multi-file Status", "Status: <multiple files selected>")),
            kCommandStatus, kMenuItemAttrSectionHeader);
  } else if (const KeldaneFileNode::Pointer node = module.nodeForPath(paths.front())) {
    addItem(items, stringWithFormat(localized("Single File Status", "Status: %@"), node->state()),
            kCommandStatus, kMenuItemAttrSectionHeader);
  }
}

void addItems(AEDescList* items, const KeldaneCMM& module, const std::vector<std::string>& paths,
              const Findings& findings) {
  addStatus(items, module, paths);
  addItem(items, "-", kCommandFirstSeparator, kMenuItemAttrSectionHeader);
  if ((findings.offers & kOfferBackup) != 0) {
    addItem(items, localized("Back up This File", "Back This Up"), kCommandBackup);
  }
  if ((findings.offers & kOfferExclude) != 0) {
    addItem(items, localized("Don't Back up This File", "Don't Back This Up"), kCommandExclude);
  }
  if (findings.offersASAP()) {
    addItem(items, localized("ASAP", "Back Up This File As Soon As Possible"), kCommandBackupASAP);
  }
  addItem(items, "-", kCommandSecondSeparator, kMenuItemAttrSectionHeader);
  addItem(items, localized("Prefs", "Open Keldane Preferences…"), kCommandPreferences);
}

/// Appends the submenu's parent item with the items to the host's list. The result is the error of the first
/// step that fails.
OSErr appendSubmenu(AERecord* parent, const AEDescList* items, AEDescList* commandList) {
  // This number is a native long of 8 bytes, while those of the items have 4 bytes. Hosts read it by its
  // size. This is kept on purpose.
  const long command = kCommandSubmenu;
  const MenuItemAttributes attributes = kMenuItemAttrSubmenuParentChoosable;
  OSErr error = putTitle(parent, titleFrom(localized("Menu Title", "Keldane")).get());
  if (error == kNoErr) {
    error = AEPutParamPtr(parent, keyContextualMenuCommandID, typeLongInteger, &command, sizeof(command));
  }
  if (error == kNoErr && gHasAttributeAndModifierKeys) {
    error =
        AEPutParamPtr(parent, keyContextualMenuAttributes, typeLongInteger, &attributes, sizeof(attributes));
  }
  if (error == kNoErr) {
    error = AEPutParamDesc(parent, keyContextualMenuSubmenu, items);
  }
  return error == kNoErr ? AEPutDesc(commandList, 0, parent) : error;
}

OSStatus buildMenu(const KeldaneCMM& module, const std::vector<std::string>& paths, const Findings& findings,
                   AEDescList* commandList) {
  OwnedDescriptor items;
  OwnedDescriptor parent;
  OSErr error = AECreateList(nullptr, 0, false, items.get());
  if (error == kNoErr) {
    addItems(items.get(), module, paths, findings);
    error = AECreateList(nullptr, 0, true, parent.get());
  }
  return error == kNoErr ? appendSubmenu(parent.get(), items.get(), commandList) : error;
}

OSStatus examineContext(KeldanePluginInstance& instance, const AEDesc& context, AEDescList* commandList) {
  KeldaneLogStart();
  KeldaneCLog("KeldanePlugin_ExamineContext:");
  if (!isHostTheFinder()) {
    return kNoErr;
  }
  std::int32_t attributes = 0;
  if (const OSStatus error = Gestalt(gestaltContextualMenuAttr, &attributes); error != kNoErr) {
    return error;
  }
  gHasAttributeAndModifierKeys = (attributes & gestaltContextualMenuHasAttributeAndModifierKeys) != 0;
  if (Application::sharedApplication() == nullptr) {
    return kNoErr;
  }
  const std::vector<std::string> paths = AEDescToNSArray(&context);
  if (paths.empty() || !isServiceThere()) {
    return kNoErr;
  }
  if (instance.module == nullptr) {
    instance.module = guardedEntry<Module*>("KeldanePlugin_ExamineContext", nullptr,
                                            [] { return new Module(KeldaneCMM::init()); });
    if (instance.module == nullptr) {
      return kParamErr;
    }
  }
  const KeldaneCMM& module = **instance.module;
  Findings findings;
  for (const std::string& path : paths) {
    examinePath(module, path, findings);
  }
  return findings.someItemBarred ? kNoErr : buildMenu(module, paths, findings, commandList);
}

}  // namespace

}  // namespace keldane

extern "C" OSStatus KeldanePlugin_ExamineContext(void* instance, const AEDesc* context,
                                                 AEDescList* commandList) {
  using namespace keldane;
  return guardedStatus("KeldanePlugin_ExamineContext", [&] {
    const AEDesc nothing{typeNull, nullptr};
    return examineContext(*static_cast<KeldanePluginInstance*>(instance),
                          context == nullptr ? nothing : *context, commandList);
  });
}
