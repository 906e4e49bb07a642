// Conversions from one descriptor type to another. This header is for this folder only.
#pragma once

#include "platform/events/DescriptorContent.h"

namespace keldane {

/// The content as `toType`; null when there is no such coercion. For the same type the content is returned
/// unchanged, but a file URL is checked: it must be absolute, UTF-8 and without NUL. Aliases and file
/// references are coerced to file URLs, and the kinds of text to each other. A list of one item is coerced as
/// that item.
std::shared_ptr<const DescriptorContent> coerceContent(DescType type,
                                                       std::shared_ptr<const DescriptorContent> content,
                                                       DescType toType);

}  // namespace keldane
