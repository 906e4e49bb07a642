// Small files, read whole.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Property lists that people and programs keep are small; a file beyond this is something else.
inline constexpr std::size_t kLargestFile = std::size_t{16} << 20;

/// The bytes of a regular file of at most `kLargestFile` bytes. Nothing and the error number when it cannot
/// be read: EISDIR for a folder, EINVAL for anything else that is no regular file (a pipe or device is not
/// waited for), EFBIG for one that is too large.
std::optional<Bytes> readFile(const std::string& path, int* error);

}  // namespace keldane
