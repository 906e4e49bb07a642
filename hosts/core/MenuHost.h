// A host of one contextual-menu plug-in: what a file manager does for a menu, without a window.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/Menu.h"
#include "platform/plugin/PlugIn.h"

namespace keldane {

/// How a selection is handed to the plug-in.
enum class DescriptorForm { furl, alias, fsref, text, null };

std::optional<DescriptorForm> descriptorFormNamed(const std::string& name);

/// Paths of a selection, and how they are described.
struct Selection {
  std::vector<std::string> paths;  ///< absolute
  DescriptorForm form = DescriptorForm::furl;
  bool asList = false;  ///< a list of one path too
};

/// Loads a plug-in bundle and drives one instance through its function table. Main thread. The instance is
/// released with the host.
class MenuHost {
 public:
  MenuHost() = default;
  ~MenuHost();
  MenuHost(const MenuHost&) = delete;
  MenuHost& operator=(const MenuHost&) = delete;

  /// Loads the bundle at the path, or the first that is installed, and makes an instance. False and a
  /// sentence when that cannot be done. Does nothing when one is loaded.
  bool load(const std::string& bundle, std::string* error);

  /// Of the plug-in that is loaded.
  const std::shared_ptr<Bundle>& bundle() const { return plugIn_->bundle(); }

  /// Whether the factory makes an instance of another plug-in type, which is released again.
  bool create(CFUUIDRef type);
  HRESULT queryInterface(CFUUIDRef interfaceID, bool* pointer);
  ULONG addRef();
  ULONG release();
  long instances() const;

  struct Examination {
    OSStatus status = kNoErr;
    std::vector<MenuItem> menu;  ///< what was appended to the command list
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
