#include "config/FileManagerOptions.h"

#include "platform/preferences/Preferences.h"

namespace keldane {

namespace {

constexpr char kDomain[] = "com.keldane.preferences", kOn[] = "YES", kOff[] = "NO";

}  // namespace

FileManagerOptions FileManagerOptions::read() {
  Preferences::synchronize(kDomain);
  FileManagerOptions options;
  for (const FileManagerSwitch& each : kFileManagerSwitches) {
    options.*each.option = Preferences::copyValue(each.key, kDomain).string() != kOff;
  }
  return options;
}

std::string FileManagerOptions::file() { return Preferences::fileForDomain(kDomain).string(); }

// A value that cannot be written is not kept in memory either, because it would be written later without
// anybody knowing.
bool FileManagerSwitch::set(bool on) const {
  const PropertyList before = Preferences::copyValue(key, kDomain);
  Preferences::setValue(key, on ? kOn : kOff, kDomain);
  if (Preferences::synchronize(kDomain)) {
    return true;
  }
  Preferences::setValue(key, before, kDomain);
  return false;
}

}  // namespace keldane
