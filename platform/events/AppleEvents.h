// Descriptors are the typed values, lists and records by which host and plug-in pass selections and menus to
// each other.
//
// The holder of an AEDesc owns the descriptor and gives it back with AEDisposeDesc. Functions that write a
// descriptor write a null one on failure. The Put functions copy, and the Get functions hand out copies.
// Descriptors are not locked, so only one thread at a time may use one.
//
// A descriptor of type 'cfst' owns the string reference in it. Putting one takes over the caller's reference
// on success and leaves it with the caller on failure. Copying a descriptor retains the reference, and
// disposing of it releases the reference.
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
/// Disposes of a descriptor, which may be null. The descriptor is null afterwards.
OSErr AEDisposeDesc(AEDesc* desc);
/// Makes a new descriptor of type `toType`, or fails with -1700. A list of one item is coerced as that item.
/// `result` may be `desc`. Its old content is then disposed of, also on failure.
OSErr AECoerceDesc(const AEDesc* desc, DescType toType, AEDesc* result);
std::size_t AEGetDescDataSize(const AEDesc* desc);
OSErr AEGetDescData(const AEDesc* desc, void* data, std::size_t maximumSize);

/// `factoringPtr` and `factoredSize` belong to the interface but are not supported; they must be null and 0.
OSErr AECreateList(const void* factoringPtr, std::size_t factoredSize, bool isRecord, AEDescList* result);
/// Counts the items of a list or record. For anything else the result is -1703 and the count is untouched.
OSErr AECountItems(const AEDescList* list, std::int32_t* count);
/// Index 0 appends, and 1…count replaces an item. Beyond that the result is -1701.
OSErr AEPutPtr(AEDescList* list, std::int32_t index, DescType type, const void* data, std::size_t size);
OSErr AEPutDesc(AEDescList* list, std::int32_t index, const AEDesc* desc);
/// Items are counted from 1. The desired type '****' gives the item unconverted. `keyword`, which may be
/// null, receives the item's keyword in a record, or '****' in a list.
OSErr AEGetNthDesc(const AEDescList* list, std::int32_t index, DescType desiredType, AEKeyword* keyword,
                   AEDesc* result);
OSErr AESizeOfNthItem(const AEDescList* list, std::int32_t index, DescType* type, std::size_t* size);

/// Puts an item under the keyword. A former item of that keyword is replaced.
OSErr AEPutParamPtr(AERecord* record, AEKeyword keyword, DescType type, const void* data, std::size_t size);
OSErr AEPutParamDesc(AERecord* record, AEKeyword keyword, const AEDesc* desc);
/// Copies at most `maximumSize` bytes. `actualType` and `actualSize` may be null. The result is -1701 when
/// the keyword is missing. A reference that is read from a 'cfst' is not retained for the caller and lives as
/// long as the record. So text is not coerced to 'cfst' here (-1700); AEGetParamDesc does that.
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
