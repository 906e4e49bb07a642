// The preferences of a user for one test.
#pragma once

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/files/Descriptor.h"
#include "platform/files/FileContents.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/preferences/Preferences.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

/// While it exists, this process has a user without preferences, with an empty configuration folder.
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
  /// The present content of the file; absent without a file.
  PropertyList stored() const {
    int error = 0;
    const std::optional<Bytes> bytes = readFile(file(), &error);
    return bytes ? PropertyListSerialization::propertyListFromData(*bytes, nullptr) : PropertyList();
  }
  /// Writes the file as another process would, before this one has read it.
  void store(const PropertyList::Entries& entries) const {
    const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
        PropertyList::dictionary(entries), PropertyListSerialization::Format::xml, nullptr);
    folder_.write("com.keldane.preferences.plist", std::string(bytes->begin(), bytes->end()));
  }
  /// A number that changes with each write, because each write puts a new file in place. 0 without a file.
  ino_t writeMark() const {
    struct stat status {};
    return stat(file().c_str(), &status) == 0 ? status.st_ino : 0;
  }

  const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
};

/// Counts how often a file is put in place in the preferences' folder while it exists.
class Writes {
 public:
  explicit Writes(const UserPreferences& user) : watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    inotify_add_watch(watch_.get(), user.folder().c_str(), IN_MOVED_TO);
  }
  std::size_t count() {
    alignas(inotify_event) char buffer[4096];
    for (ssize_t got = 0; (got = read(watch_.get(), buffer, sizeof(buffer))) > 0;) {
      for (ssize_t at = 0; at < got; ++count_) {
        inotify_event event{};
        std::memcpy(&event, buffer + at, sizeof(event));
        at += static_cast<ssize_t>(sizeof(event) + event.len);
      }
    }
    return count_;
  }

 private:
  const Descriptor watch_;
  std::size_t count_ = 0;
};

}  // namespace keldane::testing
