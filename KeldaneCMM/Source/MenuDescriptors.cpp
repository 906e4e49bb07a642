#include "KeldaneCMM/Source/MenuDescriptors.h"

#include <new>

#include "KeldaneCMM/Source/KeldanePlugin.h"
#include "log/KeldaneLog.h"
#include "platform/events/PathDescriptors.h"
#include "platform/plugin/ContextualMenu.h"

namespace keldane {

namespace {

/// False for an item that cannot be read and is therefore left out. When there is no memory for an item, it
/// throws std::bad_alloc, because a menu without that item would belong to another selection.
bool isRead(OSErr error) {
  if (error == memFullErr) {
    throw std::bad_alloc();
  }
  return error == kNoErr;
}

void addPath(std::vector<std::string>& paths, const AEDesc& desc) {
  std::optional<std::string> path = AEDescToPath(&desc);
  if (path && !path->empty()) {
    paths.push_back(std::move(*path));
  }
}

}  // namespace

std::vector<std::string> AEDescToNSArray(const AEDesc* desc) {
  std::vector<std::string> paths;
  std::int32_t count = 0;
  AECountItems(desc, &count);
  if (count < 2) {
    addPath(paths, *desc);
  } else {
    paths.reserve(static_cast<std::size_t>(count));
    for (std::int32_t i = 1; i <= count; ++i) {
      OwnedDescriptor item;
      if (isRead(AEGetNthDesc(desc, i, typeWildCard, nullptr, item.get()))) {
        addPath(paths, *item.get());
      }
    }
  }
  if (KeldaneLogEnabled()) {
    KeldaneCLog("%@", PropertyList::array(PropertyList::Array(paths.begin(), paths.end())));
  }
  return paths;
}

std::optional<std::string> AEDescToPath(const AEDesc* desc) {
  OwnedDescriptor url;
  if (!isRead(AECoerceDesc(desc, typeFileURL, url.get()))) {
    return std::nullopt;
  }
  const std::optional<std::string> text = stringValue(*url.get());
  // The text of a file's descriptor is an HFS path, in which ':' separates the names.
  const std::optional<FileURL> file =
      text ? FileURL::withFileSystemPath(*text, PathStyle::hfs, true) : std::nullopt;
  return file ? std::optional(file->path()) : std::nullopt;
}

OSErr putTitle(AERecord* record, CFStringRef title) {
  CFRetain(title);
  const OSErr error = AEPutParamPtr(record, keyAEName, typeCFStringRef, &title, sizeof(title));
  if (error != kNoErr) {
    CFRelease(title);  // the record did not take it over
  }
  return error;
}

OSStatus Command_AddToAEDescList(CFStringRef title, std::uint32_t command, MenuItemAttributes attributes,
                                 AEDescList* list) {
  AERecord record{typeNull, nullptr};
  OSErr error = AECreateList(nullptr, 0, true, &record);
  if (error == kNoErr) {
    error = putTitle(&record, title);
  }
  if (error == kNoErr) {
    error = AEPutParamPtr(&record, keyContextualMenuCommandID, typeLongInteger, &command, sizeof(command));
  }
  if (error == kNoErr && attributes != 0 && gHasAttributeAndModifierKeys) {
    error =
        AEPutParamPtr(&record, keyContextualMenuAttributes, typeLongInteger, &attributes, sizeof(attributes));
  }
  if (error == kNoErr) {
    AEPutDesc(list, 0, &record);
  }
  return AEDisposeDesc(&record);
}

}  // namespace keldane
