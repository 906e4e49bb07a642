// UTF-8, checked and converted.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace keldane {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// Reads one character at `position` and moves it on. Bytes that are not UTF-8 (overlong forms, surrogates
/// and what is beyond U+10FFFF included) read as one U+FFFD a byte, with `valid` set to false.
char32_t nextCharacter(std::string_view utf8, std::size_t& position, bool& valid);

bool isAscii(std::string_view text);
bool isValidUtf8(std::string_view text);
/// The text with every byte that is not UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

/// Appends one character; a number that is no character is appended as U+FFFD.
void appendUtf8(std::string& text, char32_t character);

/// UTF-16 units in the given byte order; a lone surrogate becomes U+FFFD, an odd byte at the end too.
std::string utf8FromUtf16(std::string_view bytes, bool bigEndian);
std::u16string utf16FromUtf8(std::string_view utf8);

}  // namespace keldane
