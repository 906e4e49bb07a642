#include "clients/core/DaemonBundle.h"

#include "platform/plugin/PlugIn.h"

namespace keldane {

namespace {

std::shared_ptr<Bundle> bundleNamed(const std::string& path) {
  if (!path.empty()) {
    return Bundle::bundleWithPath(path);
  }
  const auto installed = PlugIn::findBundleForType(contextualMenuTypeID());
  if (!installed) {
    throw NoDaemonBundle(
        "No Keldane plug-in is installed that would say where the daemon is; --bundle names one.");
  }
  return Bundle::bundleWithPath(*installed);
}

}  // namespace

DaemonBundle findDaemonBundle(const std::string& path) {
  DaemonBundle found{bundleNamed(path), {}};
  if (!found.bundle) {
    throw NoDaemonBundle(path + " is no bundle, so it does not say where the daemon is.");
  }
  found.socketPath = found.bundle->objectForInfoDictionaryKey("DaemonPath").string();
  if (found.socketPath.empty()) {
    const std::string written(found.bundle->infoDictionary()["DaemonPath"].string());
    throw NoDaemonBundle(found.bundle->bundlePath().string() +
                         (written.empty() ? " does not say where the daemon is."
                                          : " says that the daemon is at " + written +
                                                ", and a variable in it has no value."));
  }
  return found;
}

}  // namespace keldane
