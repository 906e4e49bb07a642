// Reading of small files as a whole.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The largest file that is read, in bytes. Property lists of users and programs are smaller than that.
inline constexpr std::size_t kLargestFile = std::size_t{16} << 20;

/// The bytes of a regular file of at most `kLargestFile` bytes. When the file cannot be read, the result is
/// absent and `error` holds the error number: EISDIR for a folder, EFBIG for a file that is too large, and
/// EINVAL for anything else that is no regular file. It does not wait for a pipe or a device.
std::optional<Bytes> readFile(const std::string& path, int* error);

}  // namespace keldane
