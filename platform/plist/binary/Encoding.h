// Encodes numbers, markers and scalars as the bytes of the binary format. This header is for this folder
// only.
//
// Each function writes at a cursor and returns the cursor behind the written bytes. Callers reserve first:
// the bytes themselves, and kEncodingSlack more, because a number is written 8 bytes wide, and the next write
// overwrites the surplus. Returning the cursor keeps it in a register: a byte that is written through a
// pointer could otherwise change any variable of the writer.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/plist/binary/Format.h"
#include "platform/plist/binary/WrittenObjects.h"

namespace keldane::binary_plist {

/// Enough for the longest scalar and for the bytes by which a number is written too wide.
inline constexpr std::size_t kEncodingSlack = 32;

inline std::size_t widthFor(std::uint64_t largest) {
  return largest < 0x100 ? 1 : largest < 0x10000 ? 2 : largest < 0x100000000 ? 4 : 8;
}

inline std::uint8_t* putByte(std::uint8_t* to, std::size_t byte) {
  *to = static_cast<std::uint8_t>(byte);
  return to + 1;
}

/// `width` is 1 to 8.
inline std::uint8_t* putBigEndian(std::uint8_t* to, std::uint64_t value, std::size_t width) {
  value <<= 64 - 8 * width;
  if constexpr (std::endian::native == std::endian::little) {
    value = __builtin_bswap64(value);
  }
  std::memcpy(to, &value, sizeof(value));
  return to + width;
}

inline std::uint8_t* putBytes(std::uint8_t* to, const void* bytes, std::size_t count) {
  return std::copy_n(static_cast<const std::uint8_t*>(bytes), count, to);
}

/// An integer object of the fewest bytes.
inline std::uint8_t* putInteger(std::uint8_t* to, std::uint64_t value) {
  const std::size_t width = widthFor(value);
  const auto low = static_cast<std::size_t>(std::countr_zero(width));
  return putBigEndian(putByte(to, marker(kInteger, low)), value, width);
}

/// A marker with its count.
inline std::uint8_t* putMarker(std::uint8_t* to, Kind kind, std::size_t count) {
  return count < kCountFollows ? putByte(to, marker(kind, count))
                               : putInteger(putByte(to, marker(kind, kCountFollows)), count);
}

inline std::uint8_t* putScalar(std::uint8_t* to, const ObjectIdentity& scalar) {
  switch (scalar.sort) {
    case ObjectIdentity::boolean:
      return putByte(to, marker(kSimple, scalar.number != 0 ? kTrue : kFalse));
    case ObjectIdentity::large:
      return putBigEndian(putBigEndian(putByte(to, marker(kInteger, kSixteenBytes)), 0, 8), scalar.number, 8);
    case ObjectIdentity::integer:
      return putInteger(to, scalar.number);  // a negative one fills 8 bytes by itself
    default:
      return putBigEndian(
          putByte(to, marker(scalar.sort == ObjectIdentity::real ? kReal : kDate, kEightBytes)),
          scalar.number, 8);
  }
}

}  // namespace keldane::binary_plist
