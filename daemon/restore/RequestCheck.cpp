#include "daemon/restore/RequestCheck.h"

#include <unistd.h>

#include <climits>

#include "platform/files/Path.h"

namespace keldane {

namespace {

/// Makes a path absolute and plain. Returns false when that would need a look at the file system.
bool makePlain(std::string& path) {
  if (!path.starts_with('/') || path.size() >= PATH_MAX || path.find('\0') != std::string::npos) {
    return false;
  }
  std::string plain = "/";
  for (const std::string& name : pathComponents(path)) {
    if (name == "." || name == ".." || name.size() > NAME_MAX) {
      return false;
    }
    plain = name == "/" ? plain : appendPathComponent(plain, name);
  }
  path = plain;
  return true;
}

}  // namespace

std::string refusalFor(RestoreRequest& request) {
  if (request.items.empty()) {
    return "Nothing was named that could be restored.";
  }
  for (RestoreRequest::Item& item : request.items) {
    if (!makePlain(item.path)) {
      return "A path to restore is not usable.";
    }
  }
  if ((!request.target.empty() && !makePlain(request.target)) ||
      (!request.exactPath.empty() && (!makePlain(request.exactPath) || request.exactPath == "/"))) {
    return "The target is no usable path.";
  }
  if (!request.exactPath.empty() && (request.items.size() != 1 || !request.target.empty())) {
    return "Only a single item can be restored to a path of its own.";
  }
  if (static_cast<std::uint32_t>(request.conflict) > static_cast<std::uint32_t>(Conflict::skip)) {
    return "What is to become of what is already there is not known.";
  }
  if (request.user != geteuid() && request.user != 0 && geteuid() != 0) {
    return "Only a daemon that runs as the administrator restores for other users.";
  }
  return {};
}

}  // namespace keldane
