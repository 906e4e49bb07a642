// Absolute paths from the paths that users give.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace keldane {

/// Makes a path absolute. A relative path starts at the working directory. Symbolic links are not resolved.
/// Throws std::runtime_error with a sentence for the user for an empty path, and for a relative one when the
/// working directory no longer exists.
inline std::string absolutePath(const std::string& path) {
  if (path.empty()) {
    throw std::runtime_error("A path cannot be empty.");
  }
  try {
    return std::filesystem::absolute(path).lexically_normal().string();
  } catch (const std::filesystem::filesystem_error&) {
    throw std::runtime_error("The working directory is gone; a path from the root is needed.");
  }
}

}  // namespace keldane
