// The sizes of folders.
#pragma once

#include <cstdint>
#include <string>

namespace keldane {

struct FolderSize {
  std::uint64_t files = 0, bytes = 0;
};

/// Walks a folder and adds up its regular files at any depth, on its own file system, without following
/// links. Files that cannot be read are not counted. Takes as long as the disk does.
FolderSize sizeOfFolder(const std::string& path);

}  // namespace keldane
