// Converts typed values to property-list objects and back. Every argument and result on the link is converted
// here.
#pragma once

#include <cstdint>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The raw C++ type of a one-letter type code. An object (`@`) is held as a PropertyList, which is as wide as
/// a pointer.
template <char Code>
struct RawTypeOf;
template <>
struct RawTypeOf<'c'> {
  using Type = signed char;
};
template <>
struct RawTypeOf<'i'> {
  using Type = std::int32_t;
};
template <>
struct RawTypeOf<'s'> {
  using Type = std::int16_t;
};
template <>
struct RawTypeOf<'l'> {
  using Type = long;
};
template <>
struct RawTypeOf<'q'> {
  using Type = std::int64_t;
};
template <>
struct RawTypeOf<'C'> {
  using Type = unsigned char;
};
template <>
struct RawTypeOf<'I'> {
  using Type = std::uint32_t;
};
template <>
struct RawTypeOf<'S'> {
  using Type = std::uint16_t;
};
template <>
struct RawTypeOf<'L'> {
  using Type = unsigned long;
};
template <>
struct RawTypeOf<'Q'> {
  using Type = std::uint64_t;
};
template <>
struct RawTypeOf<'f'> {
  using Type = float;
};
template <>
struct RawTypeOf<'d'> {
  using Type = double;
};
template <>
struct RawTypeOf<'B'> {
  using Type = unsigned char;
};
template <>
struct RawTypeOf<'@'> {
  using Type = PropertyList;
};
template <>
struct RawTypeOf<'*'> {
  using Type = const char*;
};
template <>
struct RawTypeOf<'v'> {
  using Type = void;
};
template <char Code>
using RawType = typename RawTypeOf<Code>::Type;

/// The width in bytes of a value with this type text; 0 for 'v'. Only the first character of the text counts.
/// An unknown code throws AssertionFailure.
std::uint32_t widthOfType(const char* type);

/// The object for the raw value of type `type` at the start of `buffer`. For '@' the buffer holds a
/// PropertyList, for '*' a const char*. `resultSize`, if given, receives the width. The result is absent for
/// an absent '@' and for a null '*'. An unknown first character throws AssertionFailure.
PropertyList encodeType(const char* type, const void* buffer, std::uint32_t* resultSize = nullptr);

/// Writes the raw value of type `type` for `object` to the start of `buffer`. For an absent object, or one
/// without such a conversion, it writes 0, absent or null. The text behind a '*' lives as long as `object`.
/// An unknown first character throws AssertionFailure.
void decodeObject(const PropertyList& object, const char* type, void* buffer);

}  // namespace keldane
