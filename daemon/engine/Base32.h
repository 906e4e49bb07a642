// A key as letters that people can print, read and type.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace keldane {

inline constexpr std::size_t kKeyBytes = 32;
inline constexpr std::size_t kKeyLetters = 52;

/// The base32 text of RFC 4648, upper case, without padding.
std::string base32(std::span<const std::uint8_t> bytes);

/// Four letters that are computed from a key's text. They come last on a printed sheet and reveal typing
/// errors.
std::string keyCheckLetters(std::string_view key);

/// The key's 52 letters from what a person typed: lower case, blanks, line ends and hyphens are accepted, 0
/// reads as O, 8 as B, and 1 as I, or as L when the check letters require it. The four check letters may
/// follow. Absent when the length, a letter or the check letters are wrong.
std::optional<std::string> keyFromTyping(std::string_view typed);

}  // namespace keldane
