// Paths as a person gives them.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace keldane {

/// Taken from the working directory if it is relative, and not resolved through symbolic links. Throws
/// std::runtime_error with a sentence for people for an empty path, and for a relative one when the working
/// directory is gone.
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
