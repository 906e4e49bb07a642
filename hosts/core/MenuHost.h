// A host of one contextual-menu plug-in. It does what a file manager does for a menu, but has no window.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/Menu.h"
#include "platform/plugin/PlugIn.h"

namespace keldane {

/// The form in which a selection is handed to the plug-in.
enum class DescriptorForm { furl, alias, fsref, text, null };

std::optional<DescriptorForm> descriptorFormNamed(const std::string& name);

/// The paths of a selection, and the form in which they are described.
struct Selection {
  std::vector<std::string> paths;  ///< absolute
  DescriptorForm form = DescriptorForm::furl;
  bool asList = false;  ///< a single path is put into a list too
};

/// Loads a plug-in bundle and drives one instance through its function table. All operations must be called
/// on the main thread. The destructor releases the instance.
class MenuHost {
 public:
  MenuHost() = default;
  ~MenuHost();
  MenuHost(const MenuHost&) = delete;
  MenuHost& operator=(const MenuHost&) = delete;

  /// Loads the bundle at the path and makes an instance. An empty path stands for the first plug-in that is
  /// installed. On failure the result is false and `error` holds a sentence. Does nothing when a plug-in is
  /// loaded already.
  bool load(const std::string& bundle, std::string* error);

  /// The bundle of the plug-in that is loaded.
  const std::shared_ptr<Bundle>& bundle() const { return plugIn_->bundle(); }

  /// Whether the factory makes an instance of another plug-in type. The instance is released again.
  bool create(CFUUIDRef type);
  HRESULT queryInterface(CFUUIDRef interfaceID, bool* pointer);
  ULONG addRef();
  ULONG release();
  long instances() const;

  struct Examination {
    OSStatus status = kNoErr;
    std::vector<MenuItem> menu;  ///< the items that were appended to the command list
  };
  Examination examine(const Selection& selection);
  OSStatus select(const Selection& selection, std::uint32_t command);
  void cleanup();

 private:
  const ContextualMenuInterfaceStruct& table() const {
    return **static_cast<const ContextualMenuInterfaceStruct* const*>(instance_);
  }

  std::shared_ptr<PlugIn> plugIn_;
  CFOwner<CFUUIDRef> factory_;
  void* instance_ = nullptr;
  ULONG references_ = 0;
};

}  // namespace keldane
