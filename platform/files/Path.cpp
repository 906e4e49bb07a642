#include "platform/files/Path.h"

#include <algorithm>

namespace keldane {

std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> components;
  if (path.starts_with('/')) {
    components.emplace_back("/");
  }
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start) {
      components.emplace_back(path.substr(start, end - start));
    }
    start = end + 1;
  }
  return components;
}

std::string lastPathComponent(std::string_view path) {
  const std::size_t end = path.find_last_not_of('/');
  if (end == std::string_view::npos) {
    return std::string(path.substr(0, 1));
  }
  const std::size_t slash = path.rfind('/', end);
  const std::size_t start = slash == std::string_view::npos ? 0 : slash + 1;
  return std::string(path.substr(start, end + 1 - start));
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) {
    return std::string(component);
  }
  const std::size_t end = path.find_last_not_of('/');
  const std::size_t start = component.find_first_not_of('/');
  std::string joined;
  joined.reserve(path.size() + component.size() + 1);
  joined.append(path, 0, end == std::string_view::npos ? 0 : end + 1);
  if (start == std::string_view::npos) {
    return joined.empty() ? "/" : joined;
  }
  joined += '/';
  joined += component.substr(start);
  return joined;
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const std::size_t point = name.rfind('.');
  return point == std::string::npos || point == 0 ? std::string() : name.substr(point + 1);
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
  return folder == "/" ||
         (path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/'));
}

std::string_view parentPath(std::string_view path) {
  return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

std::string_view entryName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

}  // namespace keldane
