// Descriptors: the typed values, lists and records in which host and plug-in hand each other selections and
// menus.
//
// A descriptor is owned by whoever holds the AEDesc and is given back with AEDisposeDesc. Functions that
// write a descriptor write a null one on failure. Put copies, Get hands out copies. Not locked: one
// descriptor, one thread.
//
// A descriptor of type 'cfst' owns the string reference in it: putting one takes over the caller's reference
// on success and leaves it with the caller on failure, copying a descriptor retains it, disposing releases
// it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/host/FourCharCode.h"

extern "C" {

typedef OSType DescType;
typedef OSType AEKeyword;

struct AEDesc {
  DescType descriptorType;
  struct AEDataStorageRecord* dataHandle;
};
typedef AEDesc AEDescList;
typedef AEDesc AERecord;

OSErr AECreateDesc(DescType type, const void* data, std::size_t size, AEDesc* result);
OSErr AEDuplicateDesc(const AEDesc* desc, AEDesc* result);
/// Null descriptors are fine; the descriptor is null afterwards.
OSErr AEDisposeDesc(AEDesc* desc);
/// A new descriptor of type `toType`, or -1700. A list of one item is coerced as that item. `result` may be
/// `desc`, whose old content is then disposed of, on failure too.
OSErr AECoerceDesc(const AEDesc* desc, DescType toType, AEDesc* result);
std::size_t AEGetDescDataSize(const AEDesc* desc);
OSErr AEGetDescData(const AEDesc* desc, void* data, std::size_t maximumSize);

/// `factoringPtr` and `factoredSize` are there for the interface's sake and must be null and 0.
OSErr AECreateList(const void* factoringPtr, std::size_t factoredSize, bool isRecord, AEDescList* result);
/// For lists and records; -1703 for anything else, with the count untouched.
OSErr AECountItems(const AEDescList* list, std::int32_t* count);
/// Index 0 appends, 1…count replaces; -1701 beyond.
OSErr AEPutPtr(AEDescList* list, std::int32_t index, DescType type, const void* data, std::size_t size);
OSErr AEPutDesc(AEDescList* list, std::int32_t index, const AEDesc* desc);
/// Index from 1. '****' gives the item as it is. `keyword` (may be null) receives the keyword in a record,
/// else '****'.
OSErr AEGetNthDesc(const AEDescList* list, std::int32_t index, DescType desiredType, AEKeyword* keyword,
                   AEDesc* result);
OSErr AESizeOfNthItem(const AEDescList* list, std::int32_t index, DescType* type, std::size_t* size);

/// Replaces what the record holds under the keyword.
OSErr AEPutParamPtr(AERecord* record, AEKeyword keyword, DescType type, const void* data, std::size_t size);
OSErr AEPutParamDesc(AERecord* record, AEKeyword keyword, const AEDesc* desc);
/// Copies at most `maximumSize` bytes; `actualType` and `actualSize` may be null. -1701 when the keyword is
/// not there. A reference read from a 'cfst' is not retained for the caller and lives as long as the record;
/// text is therefore not coerced to one here (-1700): AEGetParamDesc does that.
OSErr AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType,
                    void* data, std::size_t maximumSize, std::size_t* actualSize);
OSErr AEGetParamDesc(const AERecord* record, AEKeyword keyword, DescType desiredType, AEDesc* result);
OSErr AESizeOfParam(const AERecord* record, AEKeyword keyword, DescType* type, std::size_t* size);
}

namespace keldane {

inline constexpr DescType typeNull = fourCharCode("null");
inline constexpr DescType typeWildCard = fourCharCode("****");
inline constexpr DescType typeAEList = fourCharCode("list");
inline constexpr DescType typeAERecord = fourCharCode("reco");
inline constexpr DescType typeFileURL = fourCharCode("furl");
inline constexpr DescType typeAlias = fourCharCode("alis");
inline constexpr DescType typeFSRef = fourCharCode("fsrf");
inline constexpr DescType typeUTF8Text = fourCharCode("utf8");
inline constexpr DescType typeChar = fourCharCode("TEXT");
inline constexpr DescType typeLongInteger = fourCharCode("long");
inline constexpr DescType typeCFStringRef = fourCharCode("cfst");

inline constexpr OSErr errAECoercionFail = -1700;
inline constexpr OSErr errAEDescNotFound = -1701;
inline constexpr OSErr errAEWrongDataType = -1703;
inline constexpr OSErr errAENotAEDesc = -1704;
inline constexpr OSErr errAEIllegalIndex = -1719;
inline constexpr OSErr memFullErr = -108;

}  // namespace keldane
