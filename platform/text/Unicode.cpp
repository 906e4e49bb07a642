#include "platform/text/Unicode.h"

#include <cstring>

namespace keldane {

namespace {

constexpr bool isSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

template <class Word>
Word word(const char* bytes) {
  Word value = 0;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

}  // namespace

char32_t nextCharacter(std::string_view utf8, std::size_t& position, bool& valid) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(utf8[i]); };
  const std::uint8_t lead = byte(position);
  if (lead < 0x80) {
    ++position;
    return lead;
  }
  const std::size_t length = lead >= 0xF0 && lead < 0xF5   ? 4
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xC2 && lead < 0xE0 ? 2
                                                           : 0;
  if (length != 0 && length <= utf8.size() - position) {
    char32_t character = lead & (0x7FU >> length);
    std::size_t i = 1;
    for (; i < length && (byte(position + i) & 0xC0) == 0x80; ++i) {
      character = (character << 6) | (byte(position + i) & 0x3FU);
    }
    const char32_t lowest = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0x80;
    if (i == length && character >= lowest && character <= 0x10FFFF && !isSurrogate(character)) {
      position += length;
      return character;
    }
  }
  ++position;
  valid = false;
  return kReplacementCharacter;
}

bool isAscii(std::string_view text) {
  std::uint64_t all = 0;
  // The last word may overlap the one before.
  if (text.size() >= 8) {
    for (std::size_t at = 0; at < text.size() - 8; at += 8) {
      all |= word<std::uint64_t>(text.data() + at);
    }
    all |= word<std::uint64_t>(text.data() + text.size() - 8);
  } else if (text.size() >= 4) {
    all = word<std::uint32_t>(text.data()) | word<std::uint32_t>(text.data() + text.size() - 4);
  } else {
    for (const char byte : text) {
      all |= static_cast<std::uint8_t>(byte);
    }
  }
  return (all & 0x8080808080808080U) == 0;
}

bool isValidUtf8(std::string_view text) {
  if (isAscii(text)) {
    return true;
  }
  bool valid = true;
  for (std::size_t i = 0; i < text.size() && valid;) {
    nextCharacter(text, i, valid);
  }
  return valid;
}

std::string validUtf8(std::string_view text) {
  if (isValidUtf8(text)) {
    return std::string(text);
  }
  std::string result;
  result.reserve(text.size());
  bool valid = true;
  for (std::size_t i = 0; i < text.size();) {
    appendUtf8(result, nextCharacter(text, i, valid));
  }
  return result;
}

void appendUtf8(std::string& text, char32_t character) {
  if (isSurrogate(character) || character > 0x10FFFF) {
    character = kReplacementCharacter;
  }
  const auto tail = [&](int shift) {
    text.push_back(static_cast<char>(0x80U | ((character >> shift) & 0x3FU)));
  };
  if (character < 0x80) {
    text.push_back(static_cast<char>(character));
  } else if (character < 0x800) {
    text.push_back(static_cast<char>(0xC0U | (character >> 6)));
    tail(0);
  } else if (character < 0x10000) {
    text.push_back(static_cast<char>(0xE0U | (character >> 12)));
    tail(6);
    tail(0);
  } else {
    text.push_back(static_cast<char>(0xF0U | (character >> 18)));
    tail(12);
    tail(6);
    tail(0);
  }
}

std::string utf8FromUtf16(std::string_view bytes, bool bigEndian) {
  const auto unit = [&](std::size_t i) {
    const auto first = static_cast<std::uint8_t>(bytes[i]);
    const auto second = static_cast<std::uint8_t>(bytes[i + 1]);
    return static_cast<char32_t>(bigEndian ? first << 8 | second : second << 8 | first);
  };
  std::string text;
  text.reserve(bytes.size() / 2);
  std::size_t i = 0;
  for (; i + 1 < bytes.size(); i += 2) {
    char32_t character = unit(i);
    if (character >= 0xD800 && character < 0xDC00 && i + 3 < bytes.size() && unit(i + 2) >= 0xDC00 &&
        unit(i + 2) <= 0xDFFF) {
      character = 0x10000 + ((character - 0xD800) << 10) + (unit(i + 2) - 0xDC00);
      i += 2;
    }
    appendUtf8(text, character);
  }
  if (i < bytes.size()) {
    appendUtf8(text, kReplacementCharacter);
  }
  return text;
}

std::u16string utf16FromUtf8(std::string_view utf8) {
  std::u16string units;
  units.reserve(utf8.size());
  bool valid = true;
  for (std::size_t i = 0; i < utf8.size();) {
    const char32_t character = nextCharacter(utf8, i, valid);
    if (character < 0x10000) {
      units.push_back(static_cast<char16_t>(character));
    } else {
      units.push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
    }
  }
  return units;
}

}  // namespace keldane
