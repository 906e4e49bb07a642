// Checks and conversions of UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace keldane {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// Reads one character at `position` and advances `position`. Each byte that is not UTF-8 reads as one
/// U+FFFD, with `valid` set to false. Overlong forms, surrogates and numbers beyond U+10FFFF are not UTF-8.
char32_t nextCharacter(std::string_view utf8, std::size_t& position, bool& valid);

bool isAscii(std::string_view text);
bool isValidUtf8(std::string_view text);
/// The text with every byte that is not UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

/// Appends one character; a number that is no character is appended as U+FFFD.
void appendUtf8(std::string& text, char32_t character);

/// Converts UTF-16 units in the given byte order. A lone surrogate and an odd byte at the end become U+FFFD.
std::string utf8FromUtf16(std::string_view bytes, bool bigEndian);
std::u16string utf16FromUtf8(std::string_view utf8);

}  // namespace keldane
