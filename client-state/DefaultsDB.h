// Named values that the clients of the backup daemon remember for a user.
#pragma once

#include <cstdint>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// A wrapper around the platform's per-user preferences, in the domain "com.keldane.preferences". Class
/// operations only. A boolean is stored as the string "YES" or "NO", an integer as a number, a string as it
/// is. Every write reaches storage before it returns; a write that fails is not reported. Main thread only,
/// because `lastReadOK` is one flag for the process, valid until the next read.
///
/// Getters take the key first; setters take the value first and the key second.
class DefaultsDB {
 public:
  /// The names under which a change may be announced to other processes. Nothing here posts or observes them.
  static std::string propertyChangedNotificationString() {
    return "com.keldane.notify.defaultsPropertyChanged";
  }
  static std::string propertyChangedSenderString() { return "com.keldane.prefsPane"; }

  /// Whether the last read found a value. False at first; writes leave it alone.
  static bool lastReadOK();

  /// With `synchronize`, the values that other processes wrote are read first. The result is true only for
  /// the stored string "YES".
  static bool boolProperty(const std::string& key, bool synchronize = false);
  static bool boolProperty(const std::string& key, bool synchronize, bool withDefaultValue);
  static void setBoolProperty(bool value, const std::string& forItem);

  /// A stored string is read as a decimal number. Without a value the result is 0.
  static std::int32_t intProperty(const std::string& key, bool synchronize = false);
  static std::int32_t intProperty(const std::string& key, bool synchronize, std::int32_t withDefaultValue);
  static void setIntProperty(std::int32_t value, const std::string& forItem);

  /// The value as it is stored, or absent.
  static PropertyList stringProperty(const std::string& key, bool synchronize = false);
  static PropertyList stringProperty(const std::string& key, bool synchronize,
                                     const PropertyList& withDefaultValue);
  static void setStringProperty(const PropertyList& value, const std::string& forItem);

 private:
  static PropertyList read(const std::string& key, bool synchronize);
  static void write(const PropertyList& value, const std::string& key);
};

}  // namespace keldane
