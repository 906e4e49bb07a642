// Reads the binary property-list format, version 00. The bytes are not trusted.
#pragma once

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The value in `bytes`; throws PropertyListError. Every offset and count is checked against the bytes that
/// are there before anything is allocated for it. An object that is referred to from several places is read
/// once and shared. It refuses reference cycles, nesting beyond the limit, sets and UIDs, null objects, keys
/// that are no strings, and integers beyond 64 bits. Bytes above 127 in an ASCII string read as U+FFFD, lone
/// surrogates too.
///
/// A dictionary whose keys are `usualKeys` shares them instead of making its own. When the outermost
/// dictionary has other keys that are few and short, `usualKeys` is replaced by them.
PropertyList readBinaryPropertyList(BytesView bytes, PropertyList::Keys* usualKeys = nullptr);

}  // namespace keldane
