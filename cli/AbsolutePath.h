// Paths as a person gives them.
#pragma once

#include <filesystem>
#include <string>

namespace keldane {

/// Taken from the working directory if it is relative, and not resolved through symbolic links.
inline std::string absolutePath(const std::string& path) {
  return std::filesystem::absolute(path).lexically_normal().string();
}

}  // namespace keldane
