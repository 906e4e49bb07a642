// Where the items of a request go.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "daemon/restore/RestoreJobs.h"

namespace keldane {

/// What a request says of its items' places. Immutable.
class RestoreTargets {
 public:
  explicit RestoreTargets(const RestoreRequest& request);

  bool areOwnPlaces() const { return areOwnPlaces_; }
  /// The folder in which everything is placed, which may be reached through links; "/" for own places.
  const std::string& root() const { return root_; }
  /// The item's name in the root. Of several with one name the later ones get others.
  const std::string& nameOf(std::uint32_t item) const { return names_[item]; }
  /// Another item of the request brings it as well.
  bool isCovered(std::uint32_t item) const { return isCovered_[item]; }

 private:
  bool areOwnPlaces_;
  std::string root_;
  std::vector<std::string> names_;
  std::vector<bool> isCovered_;
};

/// Paths none of which lies in another.
class ApartPaths {
 public:
  /// False, and nothing is added, when the path is, contains or lies in one that was added.
  bool add(const std::string& path);

 private:
  std::set<std::string> paths_;
};

/// The path of the folder that an absolute path lies in; "/" for what lies there, and for itself.
std::string folderAbove(const std::string& path);

}  // namespace keldane
