// How much lies in folders.
#pragma once

#include <cstdint>
#include <string>

namespace keldane {

struct FolderSize {
  std::uint64_t files = 0, bytes = 0;
};

/// What a walk finds of regular files in a folder and below, on its own file system, without following links.
/// What cannot be read counts nothing. Takes as long as the disk does.
FolderSize sizeOfFolder(const std::string& path);

}  // namespace keldane
