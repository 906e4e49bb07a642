// A bundle that belongs to one test, as the daemon's clients see it.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/bundle/Bundle.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

class ClientBundle {
 public:
  /// "DaemonPath" is a path in the same folder; nothing listens there yet.
  ClientBundle() { writeInfo({{"DaemonPath", daemonPath()}, {"Prefpane Path", "/opt/prefs.desktop"}}); }
  explicit ClientBundle(const PropertyList::Entries& info) { writeInfo(info); }

  std::string daemonPath() const { return folder_ / "daemon.sock"; }
  const TemporaryFolder& folder() const { return folder_; }
  /// A bundle keeps the files that it has read, so everything is written before the first look.
  std::shared_ptr<Bundle> bundle() const { return Bundle::bundleWithPath(folder_ / "Test.plugin"); }

  void writeInfo(const PropertyList::Entries& info) const {
    const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
        PropertyList::dictionary(info), PropertyListSerialization::Format::binary, nullptr);
    folder_.write("Test.plugin/Contents/Info.plist", std::string(bytes->begin(), bytes->end()));
  }
  void writeStrings(const std::string& language, const std::string& table) const {
    folder_.write("Test.plugin/Contents/Resources/" + language + ".lproj/Localizable.strings", table);
  }

 private:
  TemporaryFolder folder_;
};

}  // namespace keldane::testing
