// What a look at the disk found that cannot be backed up.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "daemon/store/Store.h"

namespace keldane {

/// Keeps the store's list of failures true to what the looks at the disk find. One thread.
class ScanFailures {
 public:
  explicit ScanFailures(Store& store) : store_(store) {}

  /// Reads what the store knows at and below a place that is looked at next.
  void load(const std::string& place);
  bool isEmpty() const { return reasons_.empty(); }
  /// Notes that a path cannot be backed up and logs it, if that is news.
  void note(const std::string& path, const std::string& reason);
  /// A folder was read: it has not failed any more, nor has what lies below it, but for those of its direct
  /// entries for which `stays` answers true.
  using Stays = std::function<bool(const std::string& path, const std::string& name)>;
  void settle(const std::string& folder, const Stays& stays);

 private:
  Store& store_;
  std::map<std::string, std::string> reasons_;  // by path, at or below the place
};

}  // namespace keldane
