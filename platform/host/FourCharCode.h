// The four-character codes and result codes that cross the boundary between host and plug-in.
#pragma once

#include <cstdint>

using OSType = std::uint32_t;
using OSStatus = std::int32_t;
using OSErr = std::int16_t;

namespace keldane {

/// fourCharCode("MACS"): the first character is the most significant byte.
constexpr OSType fourCharCode(const char (&text)[5]) {
  OSType code = 0;
  for (int i = 0; i < 4; ++i) {
    code = (code << 8) | static_cast<std::uint8_t>(text[i]);
  }
  return code;
}

inline constexpr OSStatus kNoErr = 0;
inline constexpr OSStatus kParamErr = -50;

}  // namespace keldane
