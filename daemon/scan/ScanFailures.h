// The files and folders that a scan found and that cannot be backed up.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "daemon/store/Store.h"

namespace keldane {

/// Keeps the store's list of failures up to date with the results of the scans. Used on one thread.
class ScanFailures {
 public:
  explicit ScanFailures(Store& store) : store_(store) {}

  /// Loads the failures at and below the place that is scanned next.
  void load(const std::string& place);
  bool isEmpty() const { return reasons_.empty(); }
  /// Notes that a path cannot be backed up, and logs it if that is new.
  void note(const std::string& path, const std::string& reason);
  /// Removes the failures of a folder that was read, and of everything below it. The failures of direct
  /// entries for which `stays` returns true are kept, with those below them.
  using Stays = std::function<bool(const std::string& path, const std::string& name)>;
  void settle(const std::string& folder, const Stays& stays);

 private:
  Store& store_;
  std::map<std::string, std::string> reasons_;  // by path, at or below the place
};

}  // namespace keldane
