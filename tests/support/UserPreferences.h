// The preferences of a user of a test's own.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/files/FileContents.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/preferences/Preferences.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

/// From its construction on this process's user is nobody's, with an empty configuration folder.
class UserPreferences {
 public:
  UserPreferences() {
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    Preferences::forget();
  }
  ~UserPreferences() { Preferences::forget(); }
  UserPreferences(const UserPreferences&) = delete;
  UserPreferences& operator=(const UserPreferences&) = delete;

  std::string file() const { return folder_ / "com.keldane.preferences.plist"; }
  /// What lies in storage now; absent without a file.
  PropertyList stored() const {
    int error = 0;
    const std::optional<Bytes> bytes = readFile(file(), &error);
    return bytes ? PropertyListSerialization::propertyListFromData(*bytes, nullptr) : PropertyList();
  }
  /// As another process would write it, before this one has read it.
  void store(const PropertyList::Entries& entries) const {
    const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
        PropertyList::dictionary(entries), PropertyListSerialization::Format::xml, nullptr);
    folder_.write("com.keldane.preferences.plist", std::string(bytes->begin(), bytes->end()));
  }
  /// Changes with each write: every one puts a new file in place. 0 without a file.
  ino_t writeMark() const {
    struct stat status {};
    return stat(file().c_str(), &status) == 0 ? status.st_ino : 0;
  }

 private:
  TemporaryFolder folder_;
};

}  // namespace keldane::testing
