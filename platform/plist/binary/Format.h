// The constants of the binary property-list format, version 00, for its reader and its writer.
//
// The file begins with the magic text. The objects follow, then a table of their offsets, then a trailer of
// 32 bytes: 6 unused ones, the width of an offset, the width of a reference, and three integers of 8 bytes
// each, the number of objects, the number of the top object, and the offset of the table. All integers are
// big-endian.
//
// An object begins with a marker byte. Its upper half is the kind, its lower half the size: for an integer or
// a real the binary logarithm of its width, for anything else a count, or kCountFollows when an integer
// object with the count follows the marker.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace keldane {

inline constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

namespace binary_plist {

inline constexpr std::size_t kTrailerSize = 32;
/// The offset of each field in the trailer.
inline constexpr std::size_t kOffsetWidthField = 6;
inline constexpr std::size_t kReferenceWidthField = 7;
inline constexpr std::size_t kObjectCountField = 8;
inline constexpr std::size_t kTopObjectField = 16;
inline constexpr std::size_t kOffsetTableField = 24;

/// The upper half of a marker.
enum Kind : std::uint8_t {
  kSimple = 0x0,   ///< false and true; the lower half says which
  kInteger = 0x1,  ///< of 1, 2, 4 and 8 bytes; only one of 8 or 16 bytes can be negative
  kReal = 0x2,     ///< of 4 or 8 bytes
  kDate = 0x3,     ///< 8 bytes, as a real
  kData = 0x4,
  kAscii = 0x5,  ///< text of one byte a character
  kUtf16 = 0x6,  ///< text of two bytes a unit
  kUid = 0x8,
  kArray = 0xA,
  kOrderedSet = 0xB,
  kSet = 0xC,
  kDictionary = 0xD,  ///< the references of all keys, then those of all values
};

/// Lower halves.
inline constexpr std::uint8_t kFalse = 8;
inline constexpr std::uint8_t kTrue = 9;
inline constexpr std::uint8_t kFourBytes = 2;
inline constexpr std::uint8_t kEightBytes = 3;
inline constexpr std::uint8_t kSixteenBytes = 4;
inline constexpr std::uint8_t kCountFollows = 0xF;

constexpr std::uint8_t marker(Kind kind, std::size_t low) {
  return static_cast<std::uint8_t>(unsigned{kind} << 4 | low);
}
constexpr std::uint8_t kindOf(std::uint8_t marker) { return marker >> 4; }
constexpr std::uint8_t lowOf(std::uint8_t marker) { return marker & 0x0F; }

}  // namespace binary_plist

}  // namespace keldane
