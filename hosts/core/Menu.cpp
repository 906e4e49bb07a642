#include "hosts/core/Menu.h"

#include <algorithm>

#include "platform/events/OwnedDescriptor.h"
#include "platform/plugin/ContextualMenu.h"

namespace keldane {

namespace {

std::string readTitle(const AERecord& record) {
  OwnedDescriptor text;
  if (AEGetParamDesc(&record, keyAEName, typeUTF8Text, text.get()) != kNoErr) {
    return {};
  }
  std::string title(AEGetDescDataSize(text.get()), '\0');
  AEGetDescData(text.get(), title.data(), title.size());
  return title;
}

/// Reads a number of 4 or 8 bytes. Only the low four bytes count.
std::optional<std::uint32_t> readNumber(const AERecord& record, AEKeyword keyword, std::size_t& size) {
  std::uint64_t number = 0;
  DescType type = typeNull;
  if (AEGetParamPtr(&record, keyword, typeLongInteger, &type, &number, sizeof(number), &size) != kNoErr) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(number);
}

MenuItem readItem(const AERecord& record) {
  MenuItem item;
  std::size_t size = 0;
  item.title = readTitle(record);
  item.command = readNumber(record, keyContextualMenuCommandID, item.commandSize).value_or(0);
  item.attributes = readNumber(record, keyContextualMenuAttributes, size);
  OwnedDescriptor submenu;
  if (AEGetParamDesc(&record, keyContextualMenuSubmenu, typeAEList, submenu.get()) == kNoErr) {
    item.items = readMenu(*submenu.get());
  }
  return item;
}

}  // namespace

bool MenuItem::isChoosable() const {
  return !isSeparator() && (attributes.value_or(0) & kMenuItemAttrSectionHeader) == 0;
}

std::vector<MenuItem> readMenu(const AEDescList& commandList) {
  std::vector<MenuItem> items;
  std::int32_t count = 0;
  AECountItems(&commandList, &count);
  for (std::int32_t i = 1; i <= count; ++i) {
    OwnedDescriptor record;
    if (AEGetNthDesc(&commandList, i, typeAERecord, nullptr, record.get()) == kNoErr) {
      items.push_back(readItem(*record.get()));
    }
  }
  return items;
}

}  // namespace keldane
