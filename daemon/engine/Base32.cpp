#include "daemon/engine/Base32.h"

#include <algorithm>

namespace keldane {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::size_t kCheckLetters = 4;
/// More ones than this are no typing error. Each one doubles the number of readings that are tried.
constexpr std::ptrdiff_t kMostOnes = 12;

std::uint32_t crc32Of(std::string_view text) {
  std::uint32_t crc = 0xFFFFFFFFU;
  for (const char letter : text) {
    crc ^= static_cast<std::uint8_t>(letter);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

/// The letters in upper case, without blanks, line ends and hyphens. The digit 1 stays as it is.
std::string lettersOf(std::string_view typed) {
  std::string letters;
  for (char letter : typed) {
    if (std::string_view(" -\t\r\n").find(letter) != std::string_view::npos) {
      continue;
    }
    if (letter >= 'a' && letter <= 'z') {
      letter = static_cast<char>(letter - 'a' + 'A');
    }
    letters.push_back(letter == '0' ? 'O' : letter == '8' ? 'B' : letter);
  }
  return letters;
}

/// 52 letters hold 260 bits, so the last four of a key's 256 bits are padding and must be zero.
bool isKey(std::string_view letters) {
  return letters.size() == kKeyLetters && letters.find_first_not_of(kAlphabet) == std::string_view::npos &&
         kAlphabet.find(letters.back()) % 16 == 0;
}

bool isCheckedKey(std::string_view letters) {
  const std::string_view key = letters.substr(0, kKeyLetters);
  return isKey(key) && keyCheckLetters(key) == letters.substr(kKeyLetters);
}

std::string readingOf(std::string letters, std::uint32_t choice) {
  for (char& letter : letters) {
    if (letter == '1') {
      letter = (choice & 1U) != 0 ? 'L' : 'I';
      choice >>= 1;
    }
  }
  return letters;
}

}  // namespace

std::string base32(std::span<const std::uint8_t> bytes) {
  std::string text;
  std::uint32_t pending = 0;
  unsigned bits = 0;
  for (const std::uint8_t byte : bytes) {
    pending = (pending << 8) | byte;
    bits += 8;
    while (bits >= 5) {
      bits -= 5;
      text.push_back(kAlphabet[(pending >> bits) & 31U]);
    }
  }
  if (bits > 0) {
    text.push_back(kAlphabet[(pending << (5 - bits)) & 31U]);
  }
  return text;
}

std::string keyCheckLetters(std::string_view key) {
  std::uint32_t rest = crc32Of(key);
  std::string letters;
  for (std::size_t i = 0; i < kCheckLetters; ++i) {
    letters.push_back(kAlphabet[rest & 31U]);
    rest >>= 5;
  }
  return letters;
}

std::optional<std::string> keyFromTyping(std::string_view typed) {
  const std::string letters = lettersOf(typed);
  const std::ptrdiff_t ones = std::ranges::count(letters, '1');
  if (letters.size() == kKeyLetters) {
    std::string key = readingOf(letters, 0);
    return isKey(key) ? std::optional(std::move(key)) : std::nullopt;
  }
  if (letters.size() != kKeyLetters + kCheckLetters || ones > kMostOnes) {
    return std::nullopt;
  }
  for (std::uint32_t choice = 0; choice < (1U << ones); ++choice) {
    std::string reading = readingOf(letters, choice);
    if (isCheckedKey(reading)) {
      reading.resize(kKeyLetters);
      return reading;
    }
  }
  return std::nullopt;
}

}  // namespace keldane
