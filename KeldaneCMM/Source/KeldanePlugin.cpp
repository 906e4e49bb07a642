#include "KeldaneCMM/Source/KeldanePlugin.h"

#include <cstdlib>

#include "KeldaneCMM/Source/Entry.h"
#include "platform/plugin/PlugIn.h"

namespace keldane {

const ContextualMenuInterfaceStruct gKeldaneCMInterface = {
    nullptr,
    KeldanePlugin_QueryInterface,
    KeldanePlugin_AddRef,
    KeldanePlugin_Release,
    KeldanePlugin_ExamineContext,
    KeldanePlugin_HandleSelection,
    KeldanePlugin_PostMenuCleanup,
};

namespace {

// The identifier under which the bundle registers this factory.
constexpr std::string_view kFactoryID = "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36";

CFUUIDRef gKeldanePluginUUID = nullptr;  // kept for the life of the process

CFUUIDRef factoryID() {
  if (gKeldanePluginUUID == nullptr) {
    const CFOwner<CFStringRef> text(
        CFStringCreateWithBytes(kCFAllocatorSystemDefault, kFactoryID.data(), kFactoryID.size()));
    gKeldanePluginUUID = CFUUIDCreateFromString(kCFAllocatorSystemDefault, text.get());
  }
  return gKeldanePluginUUID;
}

KeldanePluginInstance* allocate(CFUUIDRef factory) {
  logEntry("KeldanePlugin_Alloc:");
  auto* instance = static_cast<KeldanePluginInstance*>(std::malloc(sizeof(KeldanePluginInstance)));
  if (instance == nullptr) {
    return nullptr;
  }
  // From here on nothing can fail.
  *instance = {&gKeldaneCMInterface, static_cast<CFUUIDRef>(CFRetain(factory)), 0, nullptr};
  CFPlugInAddInstanceForFactory(factory);
  instance->referenceCount = 1;
  return instance;
}

// The module is not released here, because the clean-up at the end of each menu cycle does that. When a host
// releases an instance in the middle of a cycle, the module stays for the menu that is still shown.
void deallocate(KeldanePluginInstance* instance) {
  logEntry("KeldanePlugin_Dealloc:");
  const CFUUIDRef factory = instance->factoryID;
  std::free(instance);
  if (factory != nullptr) {
    CFPlugInRemoveInstanceForFactory(factory);
    CFRelease(factory);
  }
}

}  // namespace

}  // namespace keldane

using namespace keldane;  // the entries are in no namespace

extern "C" {

void* KeldanePluginFactory(CFAllocatorRef /*allocator*/, CFUUIDRef typeID) {
  return guardedEntry<void*>("KeldanePluginFactory", nullptr, [&]() -> void* {
    logEntry("KeldanePluginFactory:");
    if (!CFEqual(typeID, contextualMenuTypeID())) {
      return nullptr;
    }
    const CFUUIDRef factory = factoryID();
    return factory == nullptr ? nullptr : allocate(factory);
  });
}

HRESULT KeldanePlugin_QueryInterface(void* instance, REFIID interfaceID, LPVOID* interface) {
  return guardedEntry<HRESULT>("KeldanePlugin_QueryInterface", E_NOINTERFACE, [&] {
    logEntry("KeldanePlugin_QueryInterface:");
    const CFOwner<CFUUIDRef> wanted(CFUUIDCreateFromUUIDBytes(kCFAllocatorSystemDefault, interfaceID));
    if (CFEqual(wanted.get(), contextualMenuInterfaceID()) || CFEqual(wanted.get(), iUnknownID())) {
      logEntry("KeldanePlugin_AddRef:");
      ++static_cast<KeldanePluginInstance*>(instance)->referenceCount;
      *interface = instance;
      return S_OK;
    }
    *interface = nullptr;
    return E_NOINTERFACE;
  });
}

ULONG KeldanePlugin_AddRef(void* instance) {
  logEntry("KeldanePlugin_AddRef:");
  return ++static_cast<KeldanePluginInstance*>(instance)->referenceCount;
}

ULONG KeldanePlugin_Release(void* instance) {
  logEntry("KeldanePlugin_Release:");
  auto* record = static_cast<KeldanePluginInstance*>(instance);
  if (--record->referenceCount != 0) {
    return record->referenceCount;
  }
  return guardedEntry<ULONG>("KeldanePlugin_Release", 0, [&] {
    deallocate(record);
    return 0U;
  });
}
}
