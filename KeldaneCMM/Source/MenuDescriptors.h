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

/// The POSIX paths of a selection, in order. A descriptor that is no list counts as one item. An item without
/// a path is left out. When there is no memory for an item, the call throws std::bad_alloc.
std::vector<std::string> AEDescToNSArray(const AEDesc* desc);

/// The POSIX path of one item, without a trailing slash; absent when the item is not in the file system.
std::optional<std::string> AEDescToPath(const AEDesc* desc);

/// Appends a menu item: its title, its command number in 4 bytes, and its attributes if it has any and the
/// host knows them. The record retains the title. When a step fails, the item is left out. The result is that
/// of the final disposal, not of the failed step.
OSStatus Command_AddToAEDescList(CFStringRef title, std::uint32_t command, MenuItemAttributes attributes,
                                 AEDescList* list);

/// Puts a title into a record. The record holds a reference of its own.
OSErr putTitle(AERecord* record, CFStringRef title);

}  // namespace keldane
