// The content behind a descriptor's handle. This header is for this folder only.
#pragma once

#include <memory>
#include <vector>

#include "platform/events/AppleEvents.h"
#include "platform/objects/CFObjects.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

struct DescriptorContent;

/// One item of a list or record; the keyword is '****' in a list.
struct DescriptorItem {
  AEKeyword keyword = typeWildCard;
  DescType type = typeNull;
  std::shared_ptr<const DescriptorContent> content;
};

/// The immutable content of a descriptor. Its copies share it, so copying a list costs one increment, however
/// long the list is. The reference of a 'cfst' is kept here and lives as long as the last copy.
struct DescriptorContent {
  Bytes data;
  CFOwner<CFStringRef> string;
  std::vector<DescriptorItem> items;
  int depth = 0;  ///< levels of nested lists and records; bounded, so that freeing them needs little stack
};

}  // namespace keldane

struct AEDataStorageRecord {
  std::shared_ptr<const keldane::DescriptorContent> content;
  /// The same content while no copy of the descriptor has been handed out, so that it can be changed in
  /// place.
  keldane::DescriptorContent* own;
};
