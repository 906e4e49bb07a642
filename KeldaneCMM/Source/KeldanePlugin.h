// The plug-in's instance record and the entries that the host calls through the function table.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/plugin/ContextualMenu.h"

namespace keldane {

class KeldaneCMM;

/// The instance that the factory hands out. The host uses its address as a pointer to the pointer to the
/// function table. It is allocated with malloc. The reference count is not atomic, because the host calls one
/// entry at a time, on the main thread.
struct KeldanePluginInstance {
  const ContextualMenuInterfaceStruct* interface;
  CFUUIDRef factoryID;  // retained
  std::uint32_t referenceCount;
  /// Made by the examination, released by the clean-up; null between two menus. The instance owns it. It
  /// points to a shared pointer on the heap, so that the record itself stays a plain structure.
  std::shared_ptr<KeldaneCMM>* module;
};

extern const ContextualMenuInterfaceStruct gKeldaneCMInterface;

/// Whether the host's menus support item attributes. Each examination sets it.
extern bool gHasAttributeAndModifierKeys;

}  // namespace keldane

extern "C" {

/// The factory, the only function that the host finds by name. `allocator` is not used. The result is null
/// for a type other than the contextual menu's.
void* KeldanePluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID);

HRESULT KeldanePlugin_QueryInterface(void* instance, REFIID interfaceID, LPVOID* interface);
ULONG KeldanePlugin_AddRef(void* instance);
ULONG KeldanePlugin_Release(void* instance);
OSStatus KeldanePlugin_ExamineContext(void* instance, const AEDesc* context, AEDescList* commandList);
OSStatus KeldanePlugin_HandleSelection(void* instance, AEDesc* context, SInt32 command);
void KeldanePlugin_PostMenuCleanup(void* instance);
}
