#include "clients/ctl/Text.h"

#include <algorithm>
#include <cmath>
#include <cwchar>

#include "clients/ctl/Terminal.h"
#include "platform/plist/Unicode.h"
#include "platform/syslog/Format.h"

namespace keldane {

namespace {

// Controls, and the marks that set the direction of what follows.
bool isHarmful(char32_t character) {
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x200E ||
         character == 0x200F || character == 0x061C || (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2066 && character <= 0x2069) || character == 0xFEFF;
}

std::string escape(char32_t character) {
  switch (character) {
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    case '\r':
      return "\\r";
    default:
      return stringWithFormat(character < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(character));
  }
}

std::size_t columnsOf(char32_t character) {
  // Of a character that the locale does not know nothing is known.
  const int columns = wcwidth(static_cast<wchar_t>(character));
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    bool valid = true;
    const char32_t character = nextCharacter(text, at, valid);
    if (!valid) {
      result += escape(static_cast<unsigned char>(text[start]));
    } else if (isHarmful(character)) {
      result += escape(character);
    } else {
      result += text.substr(start, at - start);
    }
  }
  return result;
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    bool valid = true;
    columns += columnsOf(nextCharacter(text, at, valid));
  }
  return columns;
}

std::string padded(const std::string& text, std::size_t columns) {
  return text + std::string(columns - std::min(columns, columnsOf(text)), ' ');
}

std::string rightAligned(const std::string& text, std::size_t columns) {
  return std::string(columns - std::min(columns, columnsOf(text)), ' ') + text;
}

std::string lastColumns(std::string_view text, std::size_t columns) {
  std::size_t left = columnsOf(text);
  if (left <= columns) {
    return std::string(text);
  }
  if (columns == 0) {
    return {};
  }
  std::size_t at = 0;
  while (left + 1 > columns && at < text.size()) {
    bool valid = true;
    left -= columnsOf(nextCharacter(text, at, valid));
  }
  return (Terminal::hasBoxes() ? "…" : "<") + std::string(text.substr(at));
}

std::string bar(double fraction, std::size_t columns) {
  const std::size_t inside = columns > 2 ? columns - 2 : 0;
  const auto filled =
      static_cast<std::size_t>(std::floor(std::clamp(fraction, 0.0, 1.0) * static_cast<double>(inside)));
  std::string text = "[";
  for (std::size_t i = 0; i < inside; ++i) {
    text += Terminal::hasBoxes() ? (i < filled ? "█" : "░") : (i < filled ? "#" : ".");
  }
  return text + "]";
}

}  // namespace keldane
