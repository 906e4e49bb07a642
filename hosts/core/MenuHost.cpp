#include "hosts/core/MenuHost.h"

#include "platform/events/OwnedDescriptor.h"
#include "platform/events/PathDescriptors.h"

namespace keldane {

namespace {

void describePath(const std::string& path, DescriptorForm form, AEDesc* result) {
  switch (form) {
    case DescriptorForm::furl:
      createFileURLDescriptor(path, result);
      return;
    case DescriptorForm::alias:
      createAliasDescriptor(path, result);
      return;
    case DescriptorForm::fsref:
      createFileReferenceDescriptor(path, result);
      return;
    case DescriptorForm::text:
      AECreateDesc(typeUTF8Text, path.data(), path.size(), result);
      return;
    case DescriptorForm::null:
      return;
  }
}

void describe(const Selection& selection, OwnedDescriptor& result) {
  if (selection.form == DescriptorForm::null) {
    return;
  }
  if (selection.paths.size() == 1 && !selection.asList) {
    describePath(selection.paths.front(), selection.form, result.get());
    return;
  }
  AECreateList(nullptr, 0, false, result.get());
  for (const std::string& path : selection.paths) {
    OwnedDescriptor item;
    describePath(path, selection.form, item.get());
    AEPutDesc(result.get(), 0, item.get());
  }
}

}  // namespace

std::optional<DescriptorForm> descriptorFormNamed(const std::string& name) {
  static constexpr std::pair<std::string_view, DescriptorForm> kForms[] = {{"furl", DescriptorForm::furl},
                                                                           {"alias", DescriptorForm::alias},
                                                                           {"fsref", DescriptorForm::fsref},
                                                                           {"text", DescriptorForm::text},
                                                                           {"null", DescriptorForm::null}};
  for (const auto& [known, form] : kForms) {
    if (name == known) {
      return form;
    }
  }
  return std::nullopt;
}

MenuHost::~MenuHost() {
  if (instance_ != nullptr) {
    cleanup();  // ends the cycle of a menu that is still open
  }
  while (instance_ != nullptr) {
    release();
  }
}

bool MenuHost::load(const std::string& bundle, std::string* error) {
  if (instance_ != nullptr) {
    return true;
  }
  std::filesystem::path path = bundle;
  if (path.empty()) {
    const std::optional<std::filesystem::path> found = PlugIn::findBundleForType(contextualMenuTypeID());
    if (!found) {
      *error = "No contextual-menu plug-in is installed: none of these folders has one:";
      for (const std::filesystem::path& folder : PlugIn::searchFolders()) {
        *error += ' ' + folder.string();
      }
      return false;
    }
    path = *found;
  }
  plugIn_ = PlugIn::load(path, error);
  if (!plugIn_) {
    return false;
  }
  std::vector<CFOwner<CFUUIDRef>> factories =
      PlugIn::factoriesForType(*plugIn_->bundle(), contextualMenuTypeID());
  if (factories.empty()) {
    *error = path.string() + " registers no factory for contextual menus.";
    return false;
  }
  factory_ = std::move(factories.front());
  instance_ = plugIn_->createInstance(factory_.get(), contextualMenuTypeID(), error);
  if (instance_ == nullptr) {
    return false;
  }
  references_ = 1;
  // The platform's own hosts do the same: they ask for the interface that they will use, then give back the
  // reference that came with the instance.
  bool pointer = false;
  if (queryInterface(contextualMenuInterfaceID(), &pointer) != S_OK || !pointer) {
    *error = path.string() + " has no contextual-menu interface.";
    return false;
  }
  release();
  return true;
}

bool MenuHost::create(CFUUIDRef type) {
  std::string error;
  void* other = plugIn_->createInstance(factory_.get(), type, &error);
  if (other == nullptr) {
    return false;
  }
  (*static_cast<const ContextualMenuInterfaceStruct* const*>(other))->Release(other);
  return true;
}

HRESULT MenuHost::queryInterface(CFUUIDRef interfaceID, bool* pointer) {
  LPVOID interface = nullptr;
  const HRESULT result = table().QueryInterface(instance_, CFUUIDGetUUIDBytes(interfaceID), &interface);
  *pointer = interface != nullptr;
  references_ += result == S_OK ? 1 : 0;
  return result;
}

ULONG MenuHost::addRef() {
  ++references_;
  return table().AddRef(instance_);
}

ULONG MenuHost::release() {
  const ULONG count = table().Release(instance_);
  if (--references_ == 0) {
    instance_ = nullptr;
  }
  return count;
}

long MenuHost::instances() const { return CFPlugInGetInstanceCountForFactory(factory_.get()); }

MenuHost::Examination MenuHost::examine(const Selection& selection) {
  OwnedDescriptor context;
  OwnedDescriptor commands;
  describe(selection, context);
  AECreateList(nullptr, 0, false, commands.get());
  Examination examination;
  examination.status = table().ExamineContext(instance_, context.get(), commands.get());
  examination.menu = readMenu(*commands.get());
  return examination;
}

OSStatus MenuHost::select(const Selection& selection, std::uint32_t command) {
  OwnedDescriptor context;
  describe(selection, context);
  return table().HandleSelection(instance_, context.get(), static_cast<SInt32>(command));
}

void MenuHost::cleanup() { table().PostMenuCleanup(instance_); }

}  // namespace keldane
