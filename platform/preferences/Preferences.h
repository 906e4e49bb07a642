// Values that a user's programs remember. Each domain is one file.
#pragma once

#include <filesystem>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The current user's preferences, on any host. The domain "com.keldane.preferences" is the file
/// "com.keldane.preferences.plist" in $XDG_CONFIG_HOME (or ~/.config), binary or XML. Process-wide; any
/// thread.
///
/// Values are kept in memory from the first use of a domain; `synchronize` writes the keys that this process
/// set since the last time into whatever the file then holds, under a lock file, atomically and with mode
/// 0600, and reads what other processes wrote. So two processes that write different keys both keep theirs. A
/// file that cannot be read is set aside under a new name with a log line, never overwritten.
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
