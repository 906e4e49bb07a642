// The targets of the items of a request.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "daemon/restore/RestoreJobs.h"

namespace keldane {

/// The places of a request's items. Immutable.
class RestoreTargets {
 public:
  explicit RestoreTargets(const RestoreRequest& request);

  bool areOwnPlaces() const { return areOwnPlaces_; }
  /// The folder in which everything is placed, or "/" when the items go to their own places. Its path may
  /// contain links.
  const std::string& root() const { return root_; }
  /// The item's name in the root. When several items have the same name, the later ones get other names.
  const std::string& nameOf(std::uint32_t item) const { return names_[item]; }
  /// Whether another item of the request includes this one.
  bool isCovered(std::uint32_t item) const { return isCovered_[item]; }

 private:
  bool areOwnPlaces_;
  std::string root_;
  std::vector<std::string> names_;
  std::vector<bool> isCovered_;
};

/// A set of paths of which none lies in another.
class ApartPaths {
 public:
  /// False, and nothing is added, when the path is, contains or lies in one that was added.
  bool add(const std::string& path);

 private:
  std::set<std::string> paths_;
};

/// The path of the folder in which an absolute path lies. For "/" it is "/".
std::string folderAbove(const std::string& path);

}  // namespace keldane
