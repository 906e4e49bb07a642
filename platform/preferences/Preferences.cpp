#include "platform/preferences/Preferences.h"

#include <map>

#include "platform/files/UserFolders.h"
#include "platform/preferences/PreferencesFile.h"
#include "platform/threads/Mutex.h"

namespace keldane {

namespace {

/// The values of a domain that this process keeps in memory.
struct Domain {
  bool read = false;
  PropertyList stored;                          ///< the file's content when it was last read
  std::map<std::string, PropertyList> pending;  ///< set here, not yet written; absent removes the key
};

struct Store {
  Mutex mutex{{.name = "Preferences"}};
  std::map<std::string, Domain> domains KELDANE_GUARDED_BY(mutex);
};

Store& store() {
  static Store& instance = *new Store;
  return instance;
}

// A domain is checked because it becomes a file name.
bool isDomainName(const std::string& domain) {
  return !domain.empty() && domain.front() != '.' && domain.find('/') == std::string::npos &&
         domain.find('\0') == std::string::npos && domain.size() <= 200;
}

}  // namespace

std::filesystem::path Preferences::fileForDomain(const std::string& domain) {
  return configurationFolder() / (domain + ".plist");
}

PropertyList Preferences::copyValue(const std::string& key, const std::string& domain) {
  if (!isDomainName(domain)) {
    return {};
  }
  Store& all = store();
  const ScopedLock guard(all.mutex);
  Domain& known = all.domains[domain];
  const auto pending = known.pending.find(key);
  if (pending != known.pending.end()) {
    return pending->second;
  }
  if (!known.read) {
    known.read = PreferencesFile(fileForDomain(domain)).read(known.stored);
  }
  return known.stored[key];
}

void Preferences::setValue(const std::string& key, const PropertyList& value, const std::string& domain) {
  if (!isDomainName(domain)) {
    return;
  }
  Store& all = store();
  const ScopedLock guard(all.mutex);
  all.domains[domain].pending[key] = value;
}

bool Preferences::synchronize(const std::string& domain) {
  if (!isDomainName(domain)) {
    return false;
  }
  Store& all = store();
  const ScopedLock guard(all.mutex);
  Domain& known = all.domains[domain];
  PreferencesFile file(fileForDomain(domain));
  if (known.pending.empty()) {
    known.read = file.read(known.stored);
    return known.read;
  }
  if (!file.merge(known.pending, known.stored)) {
    return false;
  }
  known.pending.clear();
  known.read = true;
  return true;
}

void Preferences::forget() {
  Store& all = store();
  const ScopedLock guard(all.mutex);
  all.domains.clear();
}

}  // namespace keldane
