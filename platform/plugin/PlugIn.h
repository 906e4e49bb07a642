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
/// These count a factory's instances in the registry of the process. Any thread may call them.
void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);
long CFPlugInGetInstanceCountForFactory(CFUUIDRef factoryID);
}

namespace keldane {

/// A loaded plug-in bundle. Used on the main thread. The code is never unloaded.
class PlugIn {
 public:
  /// Loads the module of the bundle at `path`. On failure the result is null, and `error` holds a sentence
  /// with the path concerned. It fails when there is no bundle or no module, when the information dictionary
  /// is missing or broken, or when a symbol cannot be resolved.
  static std::shared_ptr<PlugIn> load(const std::filesystem::path& path, std::string* error);

  /// The factories that "CFPlugInTypes" registers for a type, in order; strings that are no UUID are left
  /// out.
  static std::vector<CFOwner<CFUUIDRef>> factoriesForType(const Bundle& bundle, CFUUIDRef type);

  /// Calls the factory function that "CFPlugInFactories" names for `factory`. Null when the function is not
  /// registered, is not exported or returns null; `error` then tells which.
  void* createInstance(CFUUIDRef factory, CFUUIDRef type, std::string* error);

  const std::shared_ptr<Bundle>& bundle() const { return bundle_; }

  /// The folders that are searched for plug-ins, in order: keldane/plugins under $XDG_DATA_HOME (or
  /// ~/.local/share), the same under each of $XDG_DATA_DIRS (or /usr/local/share:/usr/share), then the
  /// installation's own folder.
  static std::vector<std::filesystem::path> searchFolders();
  /// The first *.plugin in the search folders that registers the type. Within a folder they are in the order
  /// of their names.
  static std::optional<std::filesystem::path> findBundleForType(CFUUIDRef type);

 private:
  PlugIn(std::shared_ptr<Bundle> bundle, void* module) : bundle_(std::move(bundle)), module_(module) {}
  std::shared_ptr<Bundle> bundle_;
  void* module_;
};

}  // namespace keldane
