#include "daemon/scan/ScanFailures.h"

#include "daemon/Clock.h"
#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

void ScanFailures::load(const std::string& place) {
  reasons_.clear();
  if (store_.failureCount() > 0) {
    reasons_ = store_.failuresBelow(place);
  }
}

void ScanFailures::note(const std::string& path, const std::string& reason) {
  const auto known = reasons_.find(path);
  if (known == reasons_.end() || known->second != reason) {
    systemLog("%@ cannot be backed up: %@", path, reason);
    store_.setFailure(path, reason, timeOfDay());
    reasons_[path] = reason;
  }
}

void ScanFailures::settle(const std::string& folder, const Stays& stays) {
  if (reasons_.erase(folder) > 0) {
    store_.clearFailure(folder);
  }
  const std::string below = folder == "/" ? folder : folder + '/';
  std::string last;
  for (auto failure = reasons_.lower_bound(below);
       failure != reasons_.end() && failure->first.starts_with(below); ++failure) {
    const std::string_view rest = std::string_view(failure->first).substr(below.size());
    std::string name(rest.substr(0, rest.find('/')));
    if (name == last) {
      continue;
    }
    const std::string path = appendPathComponent(folder, name);
    if (!stays(path, name)) {
      store_.clearFailuresBelow(path);
    }
    last = std::move(name);
  }
}

}  // namespace keldane
