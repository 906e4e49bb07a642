// The plug-in's outer shell: its instance record and the entries that the host reaches through the function
// table.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/plugin/ContextualMenu.h"

namespace keldane {

class KeldaneCMM;

/// The instance that the factory hands out. To the host its address is that of a pointer to the function
/// table. It is allocated with malloc. The reference count is not atomic, because the host calls one entry at
/// a time, on the main thread.
struct KeldanePluginInstance {
  const ContextualMenuInterfaceStruct* interface;
  CFUUIDRef factoryID;  // retained
  std::uint32_t referenceCount;
  /// Made by the examination, released by the clean-up; null between two menus. The instance owns it: the
  /// pointer is that of a shared pointer on the heap, so that the record itself stays plain.
  std::shared_ptr<KeldaneCMM>* module;
};

extern const ContextualMenuInterfaceStruct gKeldaneCMInterface;

/// Whether the host's menus know item attributes; written by each examination.
extern bool gHasAttributeAndModifierKeys;

}  // namespace keldane

extern "C" {

/// The factory, the one function that the host finds by name. `allocator` is not used. Null for a type that
/// is not the contextual menu's.
void* KeldanePluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID);

HRESULT KeldanePlugin_QueryInterface(void* instance, REFIID interfaceID, LPVOID* interface);
ULONG KeldanePlugin_AddRef(void* instance);
ULONG KeldanePlugin_Release(void* instance);
OSStatus KeldanePlugin_ExamineContext(void* instance, const AEDesc* context, AEDescList* commandList);
OSStatus KeldanePlugin_HandleSelection(void* instance, AEDesc* context, SInt32 command);
void KeldanePlugin_PostMenuCleanup(void* instance);
}
