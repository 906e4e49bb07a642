// The binary interface between a host and a contextual-menu plug-in.
#pragma once

#include <cstdint>

#include "platform/events/AppleEvents.h"
#include "platform/objects/CFObjects.h"

extern "C" {

typedef std::int32_t HRESULT;
typedef std::uint32_t ULONG;
typedef std::int32_t SInt32;
typedef void* LPVOID;
typedef CFUUIDBytes REFIID;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80000004u);

/// The function table of a contextual-menu plug-in. An instance is a pointer to a pointer to this table. The
/// host calls the entries one at a time, on the main thread.
struct ContextualMenuInterfaceStruct {
  void* _reserved;
  HRESULT (*QueryInterface)(void* instance, REFIID interfaceID, LPVOID* interface);
  ULONG (*AddRef)(void* instance);
  ULONG (*Release)(void* instance);
  OSStatus (*ExamineContext)(void* instance, const AEDesc* context, AEDescList* commandList);
  OSStatus (*HandleSelection)(void* instance, AEDesc* context, SInt32 command);
  void (*PostMenuCleanup)(void* instance);
};

/// The type of a factory function. A bundle exports it under the name that its information dictionary gives.
typedef void* (*CFPlugInFactoryFunction)(CFAllocatorRef allocator, CFUUIDRef typeID);
}

namespace keldane {

inline constexpr OSType keyContextualMenuCommandID = fourCharCode("cmcd");
inline constexpr OSType keyContextualMenuAttributes = fourCharCode("cmat");
inline constexpr OSType keyContextualMenuSubmenu = fourCharCode("cmsb");
inline constexpr OSType keyAEName = fourCharCode("pnam");

inline constexpr std::uint32_t kMenuItemAttrSubmenuParentChoosable = 4;
inline constexpr std::uint32_t kMenuItemAttrSectionHeader = 128;

/// Constant references, not to be released.
CFUUIDRef contextualMenuTypeID();       ///< 2F6522E9-3E66-11D5-80A7-003065B300BC
CFUUIDRef contextualMenuInterfaceID();  ///< 32997B62-3E66-11D5-BEAB-003065B300BC
CFUUIDRef iUnknownID();                 ///< 00000000-0000-0000-C000-000000000046

}  // namespace keldane
