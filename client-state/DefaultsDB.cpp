#include "client-state/DefaultsDB.h"

#include <atomic>

#include "platform/preferences/Preferences.h"

namespace keldane {

namespace {

constexpr char kDomain[] = "com.keldane.preferences";

std::atomic<bool> lastReadFound = false;

}  // namespace

bool DefaultsDB::lastReadOK() { return lastReadFound; }

PropertyList DefaultsDB::read(const std::string& key, bool synchronize) {
  if (synchronize) {
    Preferences::synchronize(kDomain);
  }
  PropertyList value = Preferences::copyValue(key, kDomain);
  lastReadFound = !value.isAbsent();
  return value;
}

void DefaultsDB::write(const PropertyList& value, const std::string& key) {
  Preferences::setValue(key, value, kDomain);
  Preferences::synchronize(kDomain);
}

bool DefaultsDB::boolProperty(const std::string& key, bool synchronize) {
  return read(key, synchronize) == PropertyList("YES");
}

bool DefaultsDB::boolProperty(const std::string& key, bool synchronize, bool withDefaultValue) {
  const bool value = boolProperty(key, synchronize);
  return lastReadOK() ? value : withDefaultValue;
}

void DefaultsDB::setBoolProperty(bool value, const std::string& forItem) {
  write(value ? "YES" : "NO", forItem);
}

std::int32_t DefaultsDB::intProperty(const std::string& key, bool synchronize) {
  return read(key, synchronize).intValue();
}

std::int32_t DefaultsDB::intProperty(const std::string& key, bool synchronize,
                                     std::int32_t withDefaultValue) {
  const std::int32_t value = intProperty(key, synchronize);
  return lastReadOK() ? value : withDefaultValue;
}

void DefaultsDB::setIntProperty(std::int32_t value, const std::string& forItem) { write(value, forItem); }

PropertyList DefaultsDB::stringProperty(const std::string& key, bool synchronize) {
  return read(key, synchronize);
}

PropertyList DefaultsDB::stringProperty(const std::string& key, bool synchronize,
                                        const PropertyList& withDefaultValue) {
  const PropertyList value = stringProperty(key, synchronize);
  return lastReadOK() ? value : withDefaultValue;
}

void DefaultsDB::setStringProperty(const PropertyList& value, const std::string& forItem) {
  write(value, forItem);
}

}  // namespace keldane
