// The records of an alias and of a file reference; for this folder only.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/events/AppleEvents.h"

namespace keldane {

/// A record of type 'alis' or 'fsrf' that holds a path. It consists of four characters, the version and the
/// path's length as 32-bit little-endian integers, and the path.
std::string fileReferenceTo(DescType type, std::string_view path);

/// The path in such a record; absent when the bytes are no record of that type.
std::optional<std::string_view> pathInFileReference(DescType type, std::string_view bytes);

}  // namespace keldane
