// Finding, loading and counting plug-ins.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bundle/Bundle.h"
#include "platform/objects/CFObjects.h"
#include "platform/plugin/ContextualMenu.h"

extern "C" {
/// A factory's instances, counted in the one registry of the process. Any thread.
void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);
long CFPlugInGetInstanceCountForFactory(CFUUIDRef factoryID);
}

namespace keldane {

/// A loaded plug-in bundle. Used on the main thread. The code is never unloaded.
class PlugIn {
 public:
  /// Loads the module of the bundle at `path`. Null and a sentence with the path concerned when that cannot
  /// be done: no bundle, an information dictionary that is missing or broken, no module, an unresolved
  /// symbol.
  static std::shared_ptr<PlugIn> load(const std::filesystem::path& path, std::string* error);

  /// The factories that "CFPlugInTypes" registers for a type, in order; strings that are no UUID are left
  /// out.
  static std::vector<CFOwner<CFUUIDRef>> factoriesForType(const Bundle& bundle, CFUUIDRef type);

  /// Calls the factory function that "CFPlugInFactories" names for `factory`. Null when it is not registered,
  /// not exported or answers null; `error` then says which.
  void* createInstance(CFUUIDRef factory, CFUUIDRef type, std::string* error);

  const std::shared_ptr<Bundle>& bundle() const { return bundle_; }

  /// Where plug-ins are looked for, in order: keldane/plugins under $XDG_DATA_HOME (or ~/.local/share), under
  /// each of $XDG_DATA_DIRS (or /usr/local/share:/usr/share), then the installation's own folder.
  static std::vector<std::filesystem::path> searchFolders();
  /// The first *.plugin of the search folders, by name within a folder, that registers the type.
  static std::optional<std::filesystem::path> findBundleForType(CFUUIDRef type);

 private:
  PlugIn(std::shared_ptr<Bundle> bundle, void* module) : bundle_(std::move(bundle)), module_(module) {}
  std::shared_ptr<Bundle> bundle_;
  void* module_;
};

}  // namespace keldane
