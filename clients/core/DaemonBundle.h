// Finds the daemon through the plug-in's bundle.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/bundle/Bundle.h"

namespace keldane {

/// Nothing says where the daemon is; `what` is a sentence for the user.
class NoDaemonBundle : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct DaemonBundle {
  std::shared_ptr<Bundle> bundle;
  std::string socketPath;
};

/// The bundle at this path, or, when it is empty, the first that is installed. Throws NoDaemonBundle.
DaemonBundle findDaemonBundle(const std::string& path);

}  // namespace keldane
