// Hexadecimal digits.
#pragma once

namespace keldane {

/// The value of a hexadecimal digit, 0 to 15; -1 for any other character.
constexpr int hexDigit(char c) {
  return c >= '0' && c <= '9'   ? c - '0'
         : c >= 'a' && c <= 'f' ? c - 'a' + 10
         : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                : -1;
}

}  // namespace keldane
