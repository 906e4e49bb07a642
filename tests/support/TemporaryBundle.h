// A bundle of a test's own.
#pragma once

#include <memory>
#include <string>

#include "platform/bundle/Bundle.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

class TemporaryBundle {
 public:
  /// `entries` stand in the information dictionary as they are, in the old text format.
  explicit TemporaryBundle(const std::string& entries) {
    folder_.write("Contents/Info.plist", "{ CFBundleName = Test; " + entries + " }");
  }
  static std::string daemonPath(const std::string& path) { return "DaemonPath = \"" + path + "\";"; }
  std::shared_ptr<Bundle> bundle() const { return Bundle::bundleWithPath(folder_.path()); }
  const TemporaryFolder& folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
};

}  // namespace keldane::testing
