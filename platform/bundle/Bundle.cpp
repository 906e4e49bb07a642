#include "platform/bundle/Bundle.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "platform/bundle/Languages.h"
#include "platform/bundle/Variables.h"
#include "platform/files/FileContents.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

/// The dictionary in a file. It is empty when there is no such file, and, with a log line, when the file
/// cannot be used. `forGood` becomes false when a later attempt may succeed, because the process lacks
/// descriptors or memory now.
PropertyList readDictionary(const fs::path& file, bool* forGood) {
  int error = 0;
  const std::optional<Bytes> bytes = readFile(file.string(), &error);
  if (!bytes) {
    *forGood = *forGood && error != EMFILE && error != ENFILE && error != ENOMEM;
    if (error != ENOENT && error != ENOTDIR) {
      systemLog("%s cannot be read: error %d", file.string(), error);
    }
    return PropertyList::dictionary({});
  }
  std::string reason;
  PropertyList value = PropertyListSerialization::propertyListFromData(*bytes, &reason);
  if (!value.isDictionary()) {
    systemLog("%s is no dictionary: %s", file.string(),
              reason.empty() ? "it holds another kind of value" : reason);
    return PropertyList::dictionary({});
  }
  return value;
}

struct Registry {
  Mutex mutex{{.name = "Bundle registry", .innermost = true}};
  std::map<fs::path, std::shared_ptr<Bundle>> bundles KELDANE_GUARDED_BY(mutex);
  std::shared_ptr<Bundle> main KELDANE_GUARDED_BY(mutex);  // null until it is first used or set
  // The bundles of modules by the address and the file name of the module.
  std::map<std::pair<const void*, std::string>, std::shared_ptr<Bundle>> modules KELDANE_GUARDED_BY(mutex);
};

Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

/// "X/Contents/Linux/module" lies in the bundle X.
fs::path bundleAround(const fs::path& module) {
  const fs::path contents = module.parent_path().parent_path();
  return module.parent_path().filename() == "Linux" && contents.filename() == "Contents"
             ? contents.parent_path()
             : fs::path();
}

}  // namespace

std::shared_ptr<Bundle> Bundle::bundleWithPath(const fs::path& path) {
  std::error_code error;
  const fs::path canonical = fs::canonical(path, error);
  if (error || !fs::is_directory(canonical, error)) {
    return nullptr;
  }
  Registry& all = registry();
  const ScopedLock guard(all.mutex);
  std::shared_ptr<Bundle>& bundle = all.bundles[canonical];
  if (!bundle) {
    bundle.reset(new Bundle(canonical));
  }
  return bundle;
}

std::shared_ptr<Bundle> Bundle::mainBundle() {
  Registry& all = registry();
  {
    const ScopedLock guard(all.mutex);
    if (all.main) {
      return all.main;
    }
  }
  std::error_code error;
  const fs::path executable = fs::read_symlink("/proc/self/exe", error);
  const fs::path around = bundleAround(executable);
  std::shared_ptr<Bundle> bundle = bundleWithPath(around.empty() ? executable.parent_path() : around);
  if (!bundle) {
    bundle.reset(new Bundle(fs::path()));  // an executable whose folder is gone has an empty bundle
  }
  const ScopedLock guard(all.mutex);
  if (!all.main) {
    all.main.swap(bundle);
  }
  return all.main;
}

void Bundle::setMainBundle(std::shared_ptr<Bundle> bundle) {
  Registry& all = registry();
  const ScopedLock guard(all.mutex);
  all.main.swap(bundle);
}

std::shared_ptr<Bundle> Bundle::bundleForClass(const void* addressInClass) {
  Registry& all = registry();
  Dl_info info{};
  if (dladdr(addressInClass, &info) != 0 && info.dli_fname != nullptr) {
    // The answers are kept, because one menu asks ten times, and resolving the name takes a system call for
    // each of its components.
    const std::pair<const void*, std::string> module(info.dli_fbase, info.dli_fname);
    {
      const ScopedLock guard(all.mutex);
      const auto known = all.modules.find(module);
      if (known != all.modules.end()) {
        return known->second;
      }
    }
    std::error_code error;
    const fs::path around = bundleAround(fs::canonical(info.dli_fname, error));
    if (std::shared_ptr<Bundle> bundle = around.empty() ? nullptr : bundleWithPath(around)) {
      const ScopedLock guard(all.mutex);
      all.modules.emplace(module, bundle);
      return bundle;
    }
  }
  return mainBundle();
}

fs::path Bundle::executablePath() const {
  const PropertyList name = infoDictionary()["CFBundleExecutable"];
  const fs::path file(name.string());
  // Only a plain name is accepted, so the module lies in the bundle and nowhere else.
  return file.empty() || file != file.filename() || file == ".." ? fs::path()
                                                                 : path_ / "Contents" / "Linux" / file;
}

PropertyList Bundle::infoDictionary() const {
  const ScopedLock guard(mutex_);
  if (!infoRead_) {
    bool forGood = true;
    info_ = readDictionary(path_ / "Contents" / "Info.plist", &forGood);
    if (info_.count() == 0) {
      info_ = readDictionary(path_ / "Info.plist", &forGood);
    }
    infoRead_ = forGood;
  }
  return info_;
}

PropertyList Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  const PropertyList value = infoDictionary()[key];
  if (!value.isString() || value.string().find("${") == std::string_view::npos) {
    return value;
  }
  const std::optional<std::string> expanded = withVariables(value.string());
  return expanded ? PropertyList(*expanded) : PropertyList();
}

PropertyList Bundle::table(const std::string& name) const {
  for (const std::string& language : preferredLanguages()) {
    const fs::path file = path_ / "Contents" / "Resources" / (language + ".lproj") / (name + ".strings");
    const ScopedLock guard(mutex_);
    const auto found = tables_.find(file.string());
    if (found != tables_.end()) {
      return found->second;
    }
    std::error_code error;
    if (fs::exists(file, error)) {
      bool forGood = true;
      const PropertyList read = readDictionary(file, &forGood);
      return forGood ? tables_.emplace(file.string(), read).first->second : read;
    }
  }
  return PropertyList::dictionary({});
}

std::string Bundle::localizedStringForKey(std::string_view key, std::string_view value,
                                          std::string_view table) const {
  const PropertyList text = this->table(table.empty() ? "Localizable" : std::string(table))[key];
  return std::string(text.isString() ? text.string() : value.empty() ? key : value);
}

}  // namespace keldane
