#include "platform/plugin/PlugIn.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <map>

#include "platform/files/UserFolders.h"
#include "platform/threads/Mutex.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

CFOwner<CFUUIDRef> uuidFromText(std::string_view text) {
  const CFOwner<CFStringRef> string(
      CFStringCreateWithBytes(kCFAllocatorSystemDefault, text.data(), text.size()));
  return CFOwner<CFUUIDRef>(CFUUIDCreateFromString(kCFAllocatorSystemDefault, string.get()));
}

/// The value of a dictionary whose keys are UUIDs. The keys are compared as UUIDs, because their text may be
/// in either case.
PropertyList valueForUUID(const PropertyList& dictionary, CFUUIDRef wanted) {
  if (wanted == nullptr) {
    return {};  // otherwise a key that is no UUID would match
  }
  for (std::size_t i = 0; i < dictionary.count(); ++i) {
    const auto [key, value] = dictionary.entry(i);
    if (CFEqual(uuidFromText(key.string()).get(), wanted)) {
      return value;
    }
  }
  return {};
}

bool fail(std::string* error, const std::string& sentence) {
  if (error != nullptr) {
    *error = sentence;
  }
  return false;
}

std::string textOf(CFUUIDRef uuid) {
  const CFOwner<CFStringRef> text(CFUUIDCreateString(kCFAllocatorSystemDefault, uuid));
  return text ? CFStringGetUTF8Ptr(text.get(), nullptr) : "(null)";
}

/// One registry for the process, shared by host and plug-ins.
struct InstanceRegistry {
  using Key = std::array<std::uint8_t, sizeof(CFUUIDBytes)>;

  static Key keyOf(CFUUIDRef factory) { return std::to_array(CFUUIDGetUUIDBytes(factory).bytes); }

  Mutex mutex{{.name = "plug-in instances", .innermost = true}};
  // A factory stays in the map once it was counted; its count may be 0.
  std::map<Key, long> counts KELDANE_GUARDED_BY(mutex);
};

InstanceRegistry& instances() {
  static InstanceRegistry& registry = *new InstanceRegistry;
  return registry;
}

std::vector<fs::path> bundlesIn(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator at(folder, fs::directory_options::skip_permission_denied, error), end;
       !error && at != end; at.increment(error)) {
    if (at->path().extension() == ".plugin") {
      found.push_back(at->path());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

std::shared_ptr<PlugIn> PlugIn::load(const fs::path& path, std::string* error) {
  std::shared_ptr<Bundle> bundle = Bundle::bundleWithPath(path);
  if (!bundle) {
    fail(error, path.string() + " is no bundle: there is no such folder.");
    return nullptr;
  }
  if (bundle->infoDictionary().count() == 0) {
    fail(error,
         path.string() + " is no plug-in: its Contents/Info.plist is missing, empty or cannot be read.");
    return nullptr;
  }
  const fs::path module = bundle->executablePath();
  if (module.empty()) {
    fail(error,
         path.string() + " is no plug-in: its Contents/Info.plist names no module (CFBundleExecutable).");
    return nullptr;
  }
  std::error_code unknown;
  // This is checked because opening a pipe would wait.
  if (fs::exists(module, unknown) && !fs::is_regular_file(module, unknown)) {
    fail(error, module.string() + " cannot be loaded: it is no file.");
    return nullptr;
  }
  // The module is never closed, because a plug-in's threads may outlive its last instance.
  void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* reason = dlerror();
    fail(error,
         module.string() + " cannot be loaded: " + (reason == nullptr ? "unknown error" : reason) + ".");
    return nullptr;
  }
  return std::shared_ptr<PlugIn>(new PlugIn(std::move(bundle), handle));
}

std::vector<CFOwner<CFUUIDRef>> PlugIn::factoriesForType(const Bundle& bundle, CFUUIDRef type) {
  std::vector<CFOwner<CFUUIDRef>> factories;
  const PropertyList names = valueForUUID(bundle.objectForInfoDictionaryKey("CFPlugInTypes"), type);
  for (std::size_t i = 0; i < names.count(); ++i) {
    if (CFOwner<CFUUIDRef> factory = uuidFromText(names[i].string())) {
      factories.push_back(std::move(factory));
    }
  }
  return factories;
}

void* PlugIn::createInstance(CFUUIDRef factory, CFUUIDRef type, std::string* error) {
  const std::string where = bundle_->bundlePath().string();
  const PropertyList function =
      valueForUUID(bundle_->objectForInfoDictionaryKey("CFPlugInFactories"), factory);
  if (!function.isString() || function.string().empty()) {
    fail(error, where + " registers no function for the factory " + textOf(factory) + ".");
    return nullptr;
  }
  const std::string name(function.string());
  const auto create = reinterpret_cast<CFPlugInFactoryFunction>(dlsym(module_, name.c_str()));
  if (create == nullptr) {
    fail(error, where + " does not export its factory function " + name + ".");
    return nullptr;
  }
  void* instance = create(kCFAllocatorSystemDefault, type);
  if (instance == nullptr) {
    fail(error, where + " makes no instance of the plug-in type " + textOf(type) + ".");
  }
  return instance;
}

std::vector<fs::path> PlugIn::searchFolders() {
  std::vector<fs::path> folders;
  for (const fs::path& data : dataFolders()) {
    folders.push_back(data / "keldane" / "plugins");
  }
  folders.emplace_back(KELDANE_PLUGIN_FOLDER);
  return folders;
}

std::optional<fs::path> PlugIn::findBundleForType(CFUUIDRef type) {
  for (const fs::path& folder : searchFolders()) {
    for (const fs::path& path : bundlesIn(folder)) {
      const std::shared_ptr<Bundle> bundle = Bundle::bundleWithPath(path);
      if (bundle && !factoriesForType(*bundle, type).empty()) {
        return path;
      }
    }
  }
  return std::nullopt;
}

}  // namespace keldane

extern "C" {

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID) {
  keldane::InstanceRegistry& registry = keldane::instances();
  const keldane::ScopedLock guard(registry.mutex);
  try {
    ++registry.counts[keldane::InstanceRegistry::keyOf(factoryID)];
  } catch (const std::bad_alloc&) {  // the instance works without being counted
  }
}

void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID) {
  keldane::InstanceRegistry& registry = keldane::instances();
  const keldane::ScopedLock guard(registry.mutex);
  const auto found = registry.counts.find(keldane::InstanceRegistry::keyOf(factoryID));
  if (found != registry.counts.end() && found->second > 0) {
    --found->second;
  }
}

long CFPlugInGetInstanceCountForFactory(CFUUIDRef factoryID) {
  keldane::InstanceRegistry& registry = keldane::instances();
  const keldane::ScopedLock guard(registry.mutex);
  const auto found = registry.counts.find(keldane::InstanceRegistry::keyOf(factoryID));
  return found == registry.counts.end() ? 0 : found->second;
}
}
