#include "platform/events/Coercions.h"

#include <algorithm>
#include <cstring>

#include "platform/events/FileReference.h"
#include "platform/events/PathDescriptors.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

using ContentPointer = std::shared_ptr<const DescriptorContent>;

std::string_view textOf(const DescriptorContent& content) {
  return {reinterpret_cast<const char*>(content.data.data()), content.data.size()};
}

ContentPointer withText(std::string_view text) {
  auto content = std::make_shared<DescriptorContent>();
  content->data.assign(text.begin(), text.end());
  return content;
}

bool isText(DescType type) { return type == typeUTF8Text || type == typeChar; }

ContentPointer fileURLFrom(DescType type, const ContentPointer& content) {
  if (type == typeFileURL) {
    return FileURL::withString(textOf(*content)) ? content : nullptr;
  }
  const std::optional<std::string_view> path = pathInFileReference(type, textOf(*content));
  const std::optional<FileURL> url =
      path ? FileURL::withFileSystemPath(*path, PathStyle::posix, false) : std::nullopt;
  return url ? withText(url->string()) : nullptr;
}

ContentPointer textFrom(DescType type, const ContentPointer& content) {
  if (isText(type)) {
    return content;
  }
  if (type != typeCFStringRef || !content->string) {
    return nullptr;
  }
  std::size_t length = 0;
  const char* text = CFStringGetUTF8Ptr(content->string.get(), &length);
  return withText({text, length});
}

ContentPointer stringReferenceFrom(std::string_view text) {
  auto content = std::make_shared<DescriptorContent>();
  content->string =
      CFOwner<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorSystemDefault, text.data(), text.size()));
  if (!content->string) {
    return nullptr;
  }
  const CFStringRef reference = content->string.get();
  content->data.resize(sizeof(reference));
  std::memcpy(content->data.data(), &reference, sizeof(reference));
  return content;
}

}  // namespace

ContentPointer coerceContent(DescType type, ContentPointer content, DescType toType) {
  // This loop ends, because the nesting is bounded when items are put in.
  while (type == typeAEList && toType != typeAEList && toType != typeWildCard) {
    if (content->items.size() != 1) {
      return nullptr;
    }
    type = content->items.front().type;
    content = ContentPointer(content->items.front().content);
  }
  if (toType == typeFileURL) {
    return fileURLFrom(type, content);
  }
  if (toType == type || toType == typeWildCard) {
    return content;
  }
  if (isText(toType)) {
    return textFrom(type, content);
  }
  return toType == typeCFStringRef && isText(type) ? stringReferenceFrom(textOf(*content)) : nullptr;
}

}  // namespace keldane
