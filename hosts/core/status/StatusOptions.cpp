#include "hosts/core/status/StatusOptions.h"

#include "platform/preferences/Preferences.h"

namespace keldane {

namespace {

constexpr char kDomain[] = "com.keldane.preferences";

bool isOn(const char* key) { return Preferences::copyValue(key, kDomain).string() != "NO"; }

}  // namespace

StatusOptions readStatusOptions() {
  Preferences::synchronize(kDomain);
  return {isOn("ShowEmblems"), isOn("ShowColumns"), isOn("ShowRestoreEntries")};
}

std::string preferencesFile() { return Preferences::fileForDomain(kDomain).string(); }

}  // namespace keldane
