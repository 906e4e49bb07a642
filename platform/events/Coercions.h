// Conversions from one descriptor type to another. This header is for this folder only.
#pragma once

#include "platform/events/DescriptorContent.h"

namespace keldane {

/// The content as `toType`; null when there is no such coercion. The same type is the same content, but a
/// file URL is checked: absolute, UTF-8, no NUL. Aliases and file references become file URLs, the kinds of
/// text each other, a list of one item what that item becomes.
std::shared_ptr<const DescriptorContent> coerceContent(DescType type,
                                                       std::shared_ptr<const DescriptorContent> content,
                                                       DescType toType);

}  // namespace keldane
