#include "platform/plist/TextPropertyListReader.h"

#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/text/HexDigit.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr bool isTextBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
         c == '/' || c == ':' || c == '.' || c == '-' || static_cast<unsigned char>(c) > 127;
}

class TextReader {
 public:
  explicit TextReader(std::string_view text) : text_(text) {}

  PropertyList read() {
    skip();
    if (at_ == text_.size()) {
      throw PropertyListError("The text holds no property list", at_);
    }
    const char first = text_[at_];
    if (first == '{' || first == '(' || first == '<') {
      PropertyList value = this->value(1);
      expectEnd();
      return value;
    }
    // The word is a string that stands alone or the first key of a table.
    PropertyList word = this->word();
    skip();
    if (at_ == text_.size()) {
      return word;
    }
    return entries(std::move(word), '\0', 1);
  }

 private:
  void skip() {
    for (;;) {
      while (at_ < text_.size() && isTextBlank(text_[at_])) {
        ++at_;
      }
      const std::string_view rest = text_.substr(at_);
      if (rest.starts_with("//")) {
        at_ = std::min(text_.find_first_of("\n\r", at_), text_.size());
      } else if (rest.starts_with("/*")) {
        const std::size_t end = text_.find("*/", at_ + 2);
        if (end == std::string_view::npos) {
          throw PropertyListError("A comment has no end", at_);
        }
        at_ = end + 2;
      } else {
        return;
      }
    }
  }

  bool accept(char c) {
    skip();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }

  void expectEnd() {
    skip();
    if (at_ != text_.size()) {
      throw PropertyListError("Something follows the end of the property list", at_);
    }
  }

  PropertyList value(int depth) {
    skip();
    if (at_ == text_.size()) {
      throw PropertyListError("A value is missing", at_);
    }
    const char c = text_[at_];
    if ((c == '{' || c == '(') && depth > PropertyListSerialization::kMaximumDepth) {
      throw PropertyListError("Containers are nested too deep", at_);
    }
    switch (c) {
      case '{':
        ++at_;
        return accept('}') ? PropertyList::dictionary({}) : entries(word(), '}', depth);
      case '(':
        ++at_;
        return array(depth);
      case '<':
        ++at_;
        return data();
      default:
        return word();
    }
  }

  /// Reads entries up to `end`, or up to the end of the text. The first key has been read already.
  PropertyList entries(PropertyList key, char end, int depth) {
    PropertyList::Entries entries;
    for (;;) {
      PropertyList entryValue = key;
      if (accept('=')) {
        entryValue = value(depth + 1);
      }
      entries.emplace_back(std::move(key), std::move(entryValue));
      const bool separated = accept(';');
      if (end == '\0' ? (skip(), at_ == text_.size()) : accept(end)) {
        return PropertyList::dictionary(std::move(entries));
      }
      if (!separated) {
        throw PropertyListError("A semicolon is missing after an entry", at_);
      }
      key = word();
    }
  }

  PropertyList array(int depth) {
    PropertyList::Array elements;
    while (!accept(')')) {
      elements.push_back(value(depth + 1));
      if (!accept(',')) {
        if (!accept(')')) {
          throw PropertyListError("A comma is missing between elements", at_);
        }
        break;
      }
    }
    return PropertyList::array(std::move(elements));
  }

  PropertyList data() {
    const std::size_t start = at_ - 1;
    Bytes bytes;
    int high = -1;
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (isTextBlank(c)) {
        continue;
      }
      if (c == '>' && high < 0) {
        ++at_;
        return PropertyList::data(bytes);
      }
      const int digit = hexDigit(c);
      if (digit < 0) {
        break;
      }
      if (high < 0) {
        high = digit;
      } else {
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
        high = -1;
      }
    }
    throw PropertyListError("Data is not in pairs of hexadecimal digits", start);
  }

  PropertyList word() {
    skip();
    const std::size_t start = at_;
    if (at_ < text_.size() && (text_[at_] == '"' || text_[at_] == '\'')) {
      return quoted();
    }
    while (at_ < text_.size() && isWordCharacter(text_[at_])) {
      ++at_;
    }
    if (at_ == start) {
      throw PropertyListError("A string is missing", start);
    }
    return text_.substr(start, at_ - start);
  }

  PropertyList quoted() {
    const std::size_t start = at_;
    const char quote = text_[at_++];
    std::string content;
    while (at_ < text_.size() && text_[at_] != quote) {
      if (text_[at_] == '\\') {
        ++at_;
        escape(content);
      } else {
        content += text_[at_++];
      }
    }
    if (at_ == text_.size()) {
      throw PropertyListError("A quoted string has no end", start);
    }
    ++at_;
    return content;
  }

  void escape(std::string& content) {
    if (at_ == text_.size()) {
      return;  // the caller reports the missing quote
    }
    const char c = text_[at_++];
    switch (c) {
      case 'n':
        content += '\n';
        return;
      case 't':
        content += '\t';
        return;
      case 'r':
        content += '\r';
        return;
      case 'a':
        content += '\a';
        return;
      case 'b':
        content += '\b';
        return;
      case 'f':
        content += '\f';
        return;
      case 'v':
        content += '\v';
        return;
      case 'U':
      case 'u': {
        char32_t unit = hexUnit();
        if (unit >= 0xD800 && unit < 0xDC00 && at_ + 1 < text_.size() && text_[at_] == '\\' &&
            (text_[at_ + 1] == 'U' || text_[at_ + 1] == 'u')) {
          const std::size_t before = at_;
          at_ += 2;
          const char32_t low = hexUnit();
          if (low >= 0xDC00 && low <= 0xDFFF) {
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
          } else {
            at_ = before;
          }
        }
        appendUtf8(content, unit);
        return;
      }
      default:
        if (c >= '0' && c <= '7') {
          char32_t code = static_cast<char32_t>(c - '0');
          for (int i = 0; i < 2 && at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '7'; ++i) {
            code = code * 8 + static_cast<char32_t>(text_[at_++] - '0');
          }
          appendUtf8(content, code);
          return;
        }
        content += c;
    }
  }

  char32_t hexUnit() {
    char32_t unit = 0;
    for (int i = 0; i < 4 && at_ < text_.size() && hexDigit(text_[at_]) >= 0; ++i) {
      unit = unit * 16 + static_cast<char32_t>(hexDigit(text_[at_++]));
    }
    return unit;
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

PropertyList readTextPropertyList(std::string_view text) { return TextReader(text).read(); }

}  // namespace keldane
