#include "daemon/restore/users/RestoreTargets.h"

#include <map>

#include "daemon/restore/placing/PlaceItem.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

std::string freeName(const std::string& name, std::set<std::string>& taken) {
  std::string free = name;
  for (unsigned attempt = 1; !taken.insert(free).second; ++attempt) {
    char other[NAME_MAX + 1];
    restoredName(name.c_str(), attempt, other);
    free = other;
  }
  return free;
}

}  // namespace

std::string folderAbove(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

RestoreTargets::RestoreTargets(const RestoreRequest& request)
    : areOwnPlaces_(request.target.empty() && request.exactPath.empty()),
      root_(areOwnPlaces_               ? "/"
            : request.exactPath.empty() ? request.target
                                        : folderAbove(request.exactPath)) {
  std::map<std::string, std::set<std::uint32_t>> earlier;  // versions that items before it ask for
  std::set<std::string> taken;
  std::map<std::string, std::set<std::uint32_t>> all;
  for (const RestoreRequest::Item& item : request.items) {
    all[item.path].insert(item.version);
  }
  for (const RestoreRequest::Item& item : request.items) {
    bool covered = !earlier[item.path].insert(item.version).second;
    for (std::string above = item.path; areOwnPlaces_ && !covered && above != "/";) {
      above = folderAbove(above);
      const auto found = all.find(above);
      covered = found != all.end() && found->second.contains(item.version);
    }
    isCovered_.push_back(covered);
    const std::string name =
        request.exactPath.empty() ? lastPathComponent(item.path) : lastPathComponent(request.exactPath);
    names_.push_back(areOwnPlaces_ || covered ? name : freeName(name, taken));
  }
}

bool ApartPaths::add(const std::string& path) {
  for (std::string above = path;; above = folderAbove(above)) {
    if (paths_.contains(above)) {
      return false;
    }
    if (above == "/") {
      break;
    }
  }
  const std::string below = path == "/" ? path : path + "/";
  const auto next = paths_.lower_bound(below);
  if (next != paths_.end() && next->starts_with(below)) {
    return false;
  }
  paths_.insert(path);
  return true;
}

}  // namespace keldane
