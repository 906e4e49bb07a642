// The values that a user's programs remember. Each domain is one file.
#pragma once

#include <filesystem>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The current user's preferences, for all hosts. The domain "com.keldane.preferences" is the file
/// "com.keldane.preferences.plist" in $XDG_CONFIG_HOME (or ~/.config), binary or XML. They belong to the
/// whole process, and any thread may use them.
///
/// Values are kept in memory from the first use of a domain. `synchronize` reads the file again and writes
/// the keys that this process has set since the last time into its present content. It writes atomically,
/// under a lock file and with mode 0600. So when two processes write different keys, both are kept. A file
/// that cannot be read is set aside under a new name with a log line, never overwritten.
class Preferences {
 public:
  /// Absent when the domain has no such key.
  static PropertyList copyValue(const std::string& key, const std::string& domain);
  /// Sets a value in memory; `synchronize` writes it. An absent value removes the key.
  static void setValue(const std::string& key, const PropertyList& value, const std::string& domain);
  /// Writes and reads the domain's file. False when it could not be written; the values stay pending and are
  /// written the next time.
  static bool synchronize(const std::string& domain);

  static std::filesystem::path fileForDomain(const std::string& domain);
  /// Forgets what is in memory, pending values included; for tests that change the user's folder.
  static void forget();
};

}  // namespace keldane
