// A copy of the built plug-in bundle that belongs to one test.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/bundle/Bundle.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

/// "DaemonPath" is a path beside the bundle; nothing listens there yet. KELDANE_BUNDLE names the original.
class PluginBundle {
 public:
  PluginBundle() {
    std::filesystem::copy(KELDANE_BUNDLE, path(), std::filesystem::copy_options::recursive);
    const PropertyList::Entries info = {{"CFBundleExecutable", "KeldaneCMM.so"},
                                        {"DaemonPath", daemonPath()}};
    PropertyList::Entries entries = info;
    const PropertyList built = Bundle::bundleWithPath(KELDANE_BUNDLE)->infoDictionary();
    for (std::size_t i = 0; i < built.count(); ++i) {
      entries.push_back(built.entry(i));  // the first of two entries with the same key counts
    }
    const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
        PropertyList::dictionary(entries), PropertyListSerialization::Format::binary, nullptr);
    folder_.write("Keldane.plugin/Contents/Info.plist", std::string(bytes->begin(), bytes->end()));
  }

  std::string path() const { return folder_ / "Keldane.plugin"; }
  std::string daemonPath() const { return folder_ / "daemon.sock"; }
  const TemporaryFolder& folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
};

}  // namespace keldane::testing
