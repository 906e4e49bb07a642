#include "clients/core/words/Printable.h"

#include "platform/text/Format.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

// Control characters, and the marks that set the direction of the text after them.
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

}  // namespace keldane
