#include "clients/core/DaemonBundle.h"

#include "platform/plugin/PlugIn.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

std::shared_ptr<Bundle> bundleNamed(const std::string& path) {
  if (!path.empty()) {
    return Bundle::bundleWithPath(path);
  }
  const auto installed = PlugIn::findBundleForType(contextualMenuTypeID());
  if (!installed) {
    throw NoDaemonBundle(
        tr("No Keldane plug-in is installed that would say where the daemon is; --bundle names one."));
  }
  return Bundle::bundleWithPath(*installed);
}

}  // namespace

DaemonBundle findDaemonBundle(const std::string& path) {
  DaemonBundle found{bundleNamed(path), {}};
  if (!found.bundle) {
    throw NoDaemonBundle(filled(tr("%s is no bundle, so it does not say where the daemon is."), path));
  }
  found.socketPath = found.bundle->objectForInfoDictionaryKey("DaemonPath").string();
  if (found.socketPath.empty()) {
    const std::string written(found.bundle->infoDictionary()["DaemonPath"].string());
    const std::string bundle = found.bundle->bundlePath().string();
    throw NoDaemonBundle(
        written.empty() ? filled(tr("%s does not say where the daemon is."), bundle)
                        : filled(tr("%s says that the daemon is at %s, and a variable in it has no value."),
                                 bundle, written));
  }
  return found;
}

}  // namespace keldane
