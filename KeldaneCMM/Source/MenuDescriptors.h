// Conversions between descriptors and the menu's own types: selections to paths, menu items to records.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/events/AppleEvents.h"
#include "platform/events/OwnedDescriptor.h"
#include "platform/objects/CFObjects.h"

namespace keldane {

using MenuItemAttributes = std::uint32_t;

/// The POSIX paths of a selection, in order. A descriptor that is no list counts as one item; an item without
/// a path is left out. It throws std::bad_alloc rather than leave out an item for which there is no memory.
std::vector<std::string> AEDescToNSArray(const AEDesc* desc);

/// The POSIX path of one item, without a trailing slash; absent when it is nothing that lies in the file
/// system.
std::optional<std::string> AEDescToPath(const AEDesc* desc);

/// Appends a menu item: its title, its command number in 4 bytes, and its attributes if it has any and the
/// host knows them. The record retains the title. A step that fails leaves the item out; the result is that
/// of the final disposal.
OSStatus Command_AddToAEDescList(CFStringRef title, std::uint32_t command, MenuItemAttributes attributes,
                                 AEDescList* list);

/// Puts a title into a record; the record holds a reference of its own.
OSErr putTitle(AERecord* record, CFStringRef title);

}  // namespace keldane
