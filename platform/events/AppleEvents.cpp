#include "platform/events/AppleEvents.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/events/Coercions.h"
#include "platform/events/DescriptorContent.h"

namespace keldane {

namespace {

using Content = DescriptorContent;

constexpr int kDeepestNesting = 64;

bool isContainer(DescType type) { return type == typeAEList || type == typeAERecord; }

const Content* contentOf(const AEDesc* desc) {
  return desc == nullptr || desc->dataHandle == nullptr ? nullptr : desc->dataHandle->content.get();
}

std::shared_ptr<const Content> sharedContent(const AEDesc& desc) {
  if (desc.dataHandle == nullptr) {
    return std::make_shared<Content>();
  }
  desc.dataHandle->own = nullptr;
  return desc.dataHandle->content;
}

/// Runs an operation of the C interface, which may throw nothing. Running out of memory is the only failure
/// that is thrown here.
template <class Operation>
OSErr guarded(const Operation& operation) {
  try {
    return operation();
  } catch (...) {
    return memFullErr;
  }
}

void makeNull(AEDesc* desc) { *desc = {typeNull, nullptr}; }

/// Writes a new descriptor. The former content of the result is neither read nor disposed of.
OSErr store(DescType type, std::shared_ptr<const Content> content, AEDesc* result) {
  result->dataHandle = new AEDataStorageRecord{std::move(content), nullptr};
  result->descriptorType = type;
  return kNoErr;
}

/// The content for the caller's bytes. An item of type 'cfst' gets a reference of its own. `takeOver`
/// releases the caller's reference once nothing can fail any more.
OSErr makeItem(DescType type, const void* data, std::size_t size, DescriptorItem& item) {
  if (data == nullptr && size > 0) {
    return kParamErr;
  }
  if (type == typeCFStringRef && size != sizeof(CFStringRef)) {
    return kParamErr;
  }
  auto content = std::make_shared<Content>();
  if (size > 0) {
    content->data.resize(size);
    std::memcpy(content->data.data(), data, size);
  }
  if (type == typeCFStringRef) {
    CFStringRef string = nullptr;
    std::memcpy(&string, data, sizeof(string));
    content->string = CFOwner<CFStringRef>(static_cast<CFStringRef>(CFRetain(string)));
  }
  item.type = type;
  item.content = std::move(content);
  return kNoErr;
}

void takeOver(DescType type, const void* data) {
  if (type == typeCFStringRef) {
    CFStringRef string = nullptr;
    std::memcpy(&string, data, sizeof(string));
    CFRelease(string);
  }
}

/// Makes an item of the caller's bytes and puts it by `put`.
template <class Put>
OSErr putBytes(DescType type, const void* data, std::size_t size, const Put& put) {
  const OSErr error = guarded([&]() -> OSErr {
    DescriptorItem item;
    const OSErr made = makeItem(type, data, size, item);
    return made != kNoErr ? made : put(std::move(item));
  });
  if (error == kNoErr) {
    takeOver(type, data);
  }
  return error;
}

/// Puts an item into the container's content at `position`; one past the end appends. If others may share the
/// content, the container first gets a copy of its own.
OSErr putItem(AEDescList* list, std::size_t position, DescriptorItem item) {
  if (item.content->depth + 1 > kDeepestNesting) {
    return errAEWrongDataType;
  }
  AEDataStorageRecord& handle = *list->dataHandle;
  if (handle.own == nullptr) {
    const auto copy = std::make_shared<Content>();
    copy->items = handle.content->items;
    copy->depth = handle.content->depth;
    handle.content = copy;
    handle.own = copy.get();
  }
  Content& content = *handle.own;
  const int depth = item.content->depth + 1;
  if (position == content.items.size()) {
    content.items.push_back(std::move(item));
  } else {
    content.items[position] = std::move(item);
  }
  content.depth = std::max(content.depth, depth);
  return kNoErr;
}

OSErr checkContainer(const AEDesc* container, DescType type) {
  if (container == nullptr) {
    return kParamErr;
  }
  return container->descriptorType == type && container->dataHandle != nullptr ? OSErr{kNoErr}
                                                                               : errAEWrongDataType;
}

OSErr putAtIndex(AEDescList* list, std::int32_t index, DescriptorItem item) {
  const std::size_t count = list->dataHandle->content->items.size();
  if (index < 0 || static_cast<std::size_t>(index) > count) {
    return errAEIllegalIndex;
  }
  return putItem(list, index == 0 ? count : static_cast<std::size_t>(index) - 1, std::move(item));
}

OSErr putUnderKeyword(AERecord* record, AEKeyword keyword, DescriptorItem item) {
  const std::vector<DescriptorItem>& items = record->dataHandle->content->items;
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const DescriptorItem& other) { return other.keyword == keyword; });
  item.keyword = keyword;
  return putItem(record, static_cast<std::size_t>(found - items.begin()), std::move(item));
}

const DescriptorItem* itemAt(const AEDescList* list, std::int32_t index) {
  const Content* content = contentOf(list);
  if (content == nullptr || !isContainer(list->descriptorType) || index < 1 ||
      static_cast<std::size_t>(index) > content->items.size()) {
    return nullptr;
  }
  return &content->items[static_cast<std::size_t>(index) - 1];
}

const DescriptorItem* itemUnder(const AERecord* record, AEKeyword keyword) {
  const Content* content = contentOf(record);
  if (content == nullptr || record->descriptorType != typeAERecord) {
    return nullptr;
  }
  const auto found = std::find_if(content->items.begin(), content->items.end(),
                                  [&](const DescriptorItem& item) { return item.keyword == keyword; });
  return found == content->items.end() ? nullptr : &*found;
}

OSErr coerced(const DescriptorItem& item, DescType toType, DescriptorItem& result) {
  result.type = toType == typeWildCard ? item.type : toType;
  result.content = coerceContent(item.type, item.content, result.type);
  return result.content ? OSErr{kNoErr} : errAECoercionFail;
}

OSErr coerceInto(const DescriptorItem* item, DescType toType, AEDesc* result) {
  if (item == nullptr) {
    return errAEDescNotFound;
  }
  DescriptorItem converted;
  const OSErr error = coerced(*item, toType, converted);
  return error != kNoErr ? error : store(converted.type, std::move(converted.content), result);
}

}  // namespace

}  // namespace keldane

using namespace keldane;  // the functions of the interface are in no namespace

extern "C" {

OSErr AECreateDesc(DescType type, const void* data, std::size_t size, AEDesc* result) {
  if (result == nullptr) {
    return kParamErr;
  }
  makeNull(result);
  return putBytes(type, data, size,
                  [&](DescriptorItem item) { return store(type, std::move(item.content), result); });
}

OSErr AEDuplicateDesc(const AEDesc* desc, AEDesc* result) {
  if (desc == nullptr || result == nullptr) {
    return kParamErr;
  }
  if (desc == result) {
    return kNoErr;
  }
  makeNull(result);
  if (desc->dataHandle == nullptr) {
    result->descriptorType = desc->descriptorType;
    return kNoErr;
  }
  return guarded([&] { return store(desc->descriptorType, sharedContent(*desc), result); });
}

OSErr AEDisposeDesc(AEDesc* desc) {
  if (desc == nullptr) {
    return kParamErr;
  }
  delete desc->dataHandle;
  makeNull(desc);
  return kNoErr;
}

OSErr AECoerceDesc(const AEDesc* desc, DescType toType, AEDesc* result) {
  if (desc == nullptr || result == nullptr) {
    return kParamErr;
  }
  AEDesc source = *desc;
  makeNull(result);
  const OSErr error = guarded([&]() -> OSErr {
    const DescriptorItem item = {typeWildCard, source.descriptorType, sharedContent(source)};
    return coerceInto(&item, toType, result);
  });
  if (desc == result) {
    AEDisposeDesc(&source);
  }
  return error;
}

std::size_t AEGetDescDataSize(const AEDesc* desc) {
  const Content* content = contentOf(desc);
  return content == nullptr ? 0 : content->data.size();
}

OSErr AEGetDescData(const AEDesc* desc, void* data, std::size_t maximumSize) {
  if (desc == nullptr || (data == nullptr && maximumSize > 0)) {
    return kParamErr;
  }
  const Content* content = contentOf(desc);
  if (content != nullptr && !content->data.empty() && maximumSize > 0) {
    std::memcpy(data, content->data.data(), std::min(maximumSize, content->data.size()));
  }
  return kNoErr;
}

OSErr AECreateList(const void* factoringPtr, std::size_t factoredSize, bool isRecord, AEDescList* result) {
  if (result == nullptr) {
    return kParamErr;
  }
  makeNull(result);
  if (factoringPtr != nullptr || factoredSize != 0) {
    return kParamErr;
  }
  return guarded(
      [&] { return store(isRecord ? typeAERecord : typeAEList, std::make_shared<Content>(), result); });
}

OSErr AECountItems(const AEDescList* list, std::int32_t* count) {
  if (list == nullptr || count == nullptr) {
    return kParamErr;
  }
  if (!isContainer(list->descriptorType)) {
    return errAEWrongDataType;
  }
  const Content* content = contentOf(list);
  *count = content == nullptr
               ? 0
               : static_cast<std::int32_t>(std::min<std::size_t>(content->items.size(), INT32_MAX));
  return kNoErr;
}

OSErr AEPutPtr(AEDescList* list, std::int32_t index, DescType type, const void* data, std::size_t size) {
  if (const OSErr error = checkContainer(list, typeAEList); error != kNoErr) {
    return error;
  }
  return putBytes(type, data, size,
                  [&](DescriptorItem item) { return putAtIndex(list, index, std::move(item)); });
}

OSErr AEPutDesc(AEDescList* list, std::int32_t index, const AEDesc* desc) {
  if (const OSErr error = checkContainer(list, typeAEList); error != kNoErr) {
    return error;
  }
  if (desc == nullptr) {
    return kParamErr;
  }
  return guarded([&] {
    return putAtIndex(list, index, {typeWildCard, desc->descriptorType, sharedContent(*desc)});
  });
}

OSErr AEGetNthDesc(const AEDescList* list, std::int32_t index, DescType desiredType, AEKeyword* keyword,
                   AEDesc* result) {
  if (list == nullptr || result == nullptr) {
    return kParamErr;
  }
  makeNull(result);
  const DescriptorItem* item = itemAt(list, index);
  if (item != nullptr && keyword != nullptr) {
    *keyword = item->keyword;
  }
  return guarded([&] { return coerceInto(item, desiredType, result); });
}

OSErr AESizeOfNthItem(const AEDescList* list, std::int32_t index, DescType* type, std::size_t* size) {
  const DescriptorItem* item = itemAt(list, index);
  if (item == nullptr) {
    return errAEDescNotFound;
  }
  if (type != nullptr) {
    *type = item->type;
  }
  if (size != nullptr) {
    *size = item->content->data.size();
  }
  return kNoErr;
}

OSErr AEPutParamPtr(AERecord* record, AEKeyword keyword, DescType type, const void* data, std::size_t size) {
  if (const OSErr error = checkContainer(record, typeAERecord); error != kNoErr) {
    return error;
  }
  return putBytes(type, data, size,
                  [&](DescriptorItem item) { return putUnderKeyword(record, keyword, std::move(item)); });
}

OSErr AEPutParamDesc(AERecord* record, AEKeyword keyword, const AEDesc* desc) {
  if (const OSErr error = checkContainer(record, typeAERecord); error != kNoErr) {
    return error;
  }
  if (desc == nullptr) {
    return kParamErr;
  }
  return guarded([&] {
    return putUnderKeyword(record, keyword, {keyword, desc->descriptorType, sharedContent(*desc)});
  });
}

OSErr AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType,
                    void* data, std::size_t maximumSize, std::size_t* actualSize) {
  const DescriptorItem* item = itemUnder(record, keyword);
  if (item == nullptr) {
    return errAEDescNotFound;
  }
  if (data == nullptr && maximumSize > 0) {
    return kParamErr;
  }
  if (desiredType == typeCFStringRef && item->type != typeCFStringRef) {
    return errAECoercionFail;  // nobody would own the reference
  }
  return guarded([&]() -> OSErr {
    DescriptorItem converted;
    const OSErr error = coerced(*item, desiredType, converted);
    if (error != kNoErr) {
      return error;
    }
    const Bytes& bytes = converted.content->data;
    if (!bytes.empty() && maximumSize > 0) {
      std::memcpy(data, bytes.data(), std::min(maximumSize, bytes.size()));
    }
    if (actualType != nullptr) {
      *actualType = converted.type;
    }
    if (actualSize != nullptr) {
      *actualSize = bytes.size();
    }
    return kNoErr;
  });
}

OSErr AEGetParamDesc(const AERecord* record, AEKeyword keyword, DescType desiredType, AEDesc* result) {
  if (result == nullptr) {
    return kParamErr;
  }
  makeNull(result);
  return guarded([&] { return coerceInto(itemUnder(record, keyword), desiredType, result); });
}

OSErr AESizeOfParam(const AERecord* record, AEKeyword keyword, DescType* type, std::size_t* size) {
  const DescriptorItem* item = itemUnder(record, keyword);
  if (item == nullptr) {
    return errAEDescNotFound;
  }
  if (type != nullptr) {
    *type = item->type;
  }
  if (size != nullptr) {
    *size = item->content->data.size();
  }
  return kNoErr;
}
}
