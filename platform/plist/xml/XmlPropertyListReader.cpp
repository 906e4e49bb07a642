#include "platform/plist/xml/XmlPropertyListReader.h"

#include <array>
#include <charconv>
#include <ctime>
#include <optional>

#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListNode.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr bool isXmlBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isXmlBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isXmlBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

class XmlReader {
 public:
  explicit XmlReader(std::string_view text) : text_(text) {}

  PropertyList read() {
    skipMisc();
    Tag tag = openTag();
    const bool wrapped = tag.name == "plist";
    PropertyList value;
    if (wrapped) {
      if (tag.empty) {
        throw PropertyListError("The plist element is empty", tag.offset);
      }
      skipMisc();
      value = element(openTag(), 1);
      skipMisc();
      closeTag("plist");
    } else {
      value = element(tag, 1);
    }
    skipMisc();
    if (at_ != text_.size()) {
      throw PropertyListError("Something follows the end of the property list", at_);
    }
    return value;
  }

 private:
  struct Tag {
    std::string_view name;
    bool empty;
    std::size_t offset;
  };

  bool startsWith(std::string_view prefix) const { return text_.substr(at_).starts_with(prefix); }

  void skipPast(std::string_view end, const char* what) {
    const std::size_t found = text_.find(end, at_);
    if (found == std::string_view::npos) {
      throw PropertyListError(std::string(what) + " has no end", at_);
    }
    at_ = found + end.size();
  }

  /// Skips blanks, comments, processing instructions and the document type.
  void skipMisc() {
    for (;;) {
      while (at_ < text_.size() && isXmlBlank(text_[at_])) {
        ++at_;
      }
      if (startsWith("<!--")) {
        at_ += 4;
        skipPast("-->", "A comment");
      } else if (startsWith("<?")) {
        skipPast("?>", "A processing instruction");
      } else if (startsWith("<!DOCTYPE")) {
        skipDocumentType();
      } else {
        return;
      }
    }
  }

  /// Moves to the first of these characters that is not in quotes. False when there is none.
  bool skipToUnquoted(std::string_view wanted) {
    char quote = '\0';
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (quote != '\0') {
        quote = c == quote ? '\0' : quote;
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (wanted.find(c) != std::string_view::npos) {
        return true;
      }
    }
    return false;
  }

  void skipDocumentType() {
    const std::size_t start = at_;
    if (!skipToUnquoted("[>")) {
      throw PropertyListError("The document type has no end", start);
    }
    if (text_[at_] == '[') {
      throw PropertyListError(
          "The document type declares things of its own, which a property list does not need", at_);
    }
    ++at_;
  }

  /// Reads "<name attributes>" or "<name attributes/>".
  Tag openTag() {
    const std::size_t start = at_;
    if (at_ + 1 >= text_.size() || text_[at_] != '<' || text_[at_ + 1] == '/') {
      throw PropertyListError("An element is missing", start);
    }
    ++at_;
    const std::size_t nameStart = at_;
    while (at_ < text_.size() && !isXmlBlank(text_[at_]) && text_[at_] != '>' && text_[at_] != '/' &&
           text_[at_] != '<') {
      ++at_;
    }
    const std::string_view name = text_.substr(nameStart, at_ - nameStart);
    if (!skipToUnquoted("<>") || text_[at_] == '<') {
      throw PropertyListError("A tag has no end", start);
    }
    const bool empty = text_[at_ - 1] == '/';
    ++at_;
    return {name, empty, start};
  }

  void closeTag(std::string_view name) {
    const std::size_t start = at_;
    if (startsWith("</") && text_.substr(at_ + 2).starts_with(name)) {
      at_ += 2 + name.size();
      while (at_ < text_.size() && isXmlBlank(text_[at_])) {
        ++at_;
      }
      if (at_ < text_.size() && text_[at_] == '>') {
        ++at_;
        return;
      }
    }
    throw PropertyListError("The end of the element \"" + std::string(name) + "\" is missing", start);
  }

  PropertyList element(const Tag& tag, int depth) {
    if (tag.name == "dict" || tag.name == "array") {
      if (depth > PropertyListSerialization::kMaximumDepth) {
        throw PropertyListError("Containers are nested too deep", tag.offset);
      }
      return tag.name == "dict" ? dictionary(tag, depth) : array(tag, depth);
    }
    if (tag.name == "true" || tag.name == "false") {
      if (!tag.empty) {
        skipMisc();
        closeTag(tag.name);
      }
      return tag.name == "true";
    }
    const std::string content = tag.empty ? std::string() : characters(tag);
    if (tag.name == "string") {
      return content;
    }
    if (tag.name == "integer") {
      return integer(trimmed(content), tag.offset);
    }
    if (tag.name == "real") {
      return real(trimmed(content), tag.offset);
    }
    if (tag.name == "date") {
      return date(trimmed(content), tag.offset);
    }
    if (tag.name == "data") {
      return data(content, tag.offset);
    }
    throw PropertyListError(
        "There is no element \"" + std::string(tag.name.substr(0, 40)) + "\" in a property list", tag.offset);
  }

  bool endsHere(const Tag& tag) {
    skipMisc();
    return startsWith("</") || tag.empty;
  }

  PropertyList array(const Tag& tag, int depth) {
    PropertyList::Array elements;
    if (!tag.empty) {
      while (!endsHere(tag)) {
        elements.push_back(element(openTag(), depth + 1));
      }
      closeTag("array");
    }
    return PropertyList::array(std::move(elements));
  }

  PropertyList dictionary(const Tag& tag, int depth) {
    PropertyList::Entries entries;
    if (!tag.empty) {
      while (!endsHere(tag)) {
        const Tag key = openTag();
        if (key.name != "key") {
          throw PropertyListError("A key is missing in a dictionary", key.offset);
        }
        PropertyList name = key.empty ? std::string() : characters(key);
        if (endsHere(tag)) {
          throw PropertyListError("A key has no value", key.offset);
        }
        entries.emplace_back(std::move(name), element(openTag(), depth + 1));
      }
      closeTag("dict");
    }
    return PropertyList::dictionary(std::move(entries));
  }

  /// The text of an element up to its end tag, which is consumed.
  std::string characters(const Tag& tag) {
    std::string content;
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '&') {
        appendUtf8(content, reference());
      } else if (c != '<') {
        const std::size_t start = at_;
        while (at_ < text_.size() && text_[at_] != '<' && text_[at_] != '&') {
          ++at_;
        }
        content.append(text_.substr(start, at_ - start));
      } else if (startsWith("<![CDATA[")) {
        at_ += 9;
        const std::size_t start = at_;
        skipPast("]]>", "A CDATA section");
        content.append(text_.substr(start, at_ - 3 - start));
      } else if (startsWith("<!--")) {
        at_ += 4;
        skipPast("-->", "A comment");
      } else {
        break;
      }
    }
    closeTag(tag.name);
    return content;
  }

  char32_t reference() {
    const std::size_t start = at_;
    const std::size_t end = text_.substr(at_, 16).find(';');
    if (end == std::string_view::npos) {
      throw PropertyListError("An entity has no end", start);
    }
    const std::string_view name = text_.substr(at_ + 1, end - 1);
    at_ += end + 1;
    static constexpr std::array<std::pair<std::string_view, char>, 5> kEntities = {
        {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}}};
    for (const auto& [entity, character] : kEntities) {
      if (name == entity) {
        return static_cast<char32_t>(character);
      }
    }
    const bool hexadecimal = name.starts_with("#x");
    const std::string_view digits = name.substr(std::min<std::size_t>(name.size(), hexadecimal ? 2 : 1));
    std::uint32_t code = 0;
    const auto [stop, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), code, hexadecimal ? 16 : 10);
    if (!name.starts_with('#') || error != std::errc() || stop != digits.data() + digits.size() ||
        code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
      throw PropertyListError("There is no entity \"" + std::string(name) + "\"", start);
    }
    return code;
  }

  static PropertyList integer(std::string_view text, std::size_t offset) {
    std::string_view digits = text;
    const bool negative = digits.starts_with('-');
    if (negative || digits.starts_with('+')) {
      digits.remove_prefix(1);
    }
    const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    if (hexadecimal) {
      digits.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto [stop, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, hexadecimal ? 16 : 10);
    if (error == std::errc::invalid_argument || stop != digits.data() + digits.size()) {
      throw PropertyListError("An integer is not made of digits", offset);
    }
    constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;
    if (error == std::errc::result_out_of_range || (negative && magnitude > kSignBit)) {
      throw PropertyListError("An integer does not fit 64 bits", offset);
    }
    if (negative) {
      return PropertyList::integer(static_cast<std::int64_t>(0 - magnitude));
    }
    return magnitude < kSignBit ? PropertyList::integer(static_cast<std::int64_t>(magnitude))
                                : PropertyList::unsignedInteger(magnitude);
  }

  static PropertyList real(std::string_view text, std::size_t offset) {
    std::string_view digits = text;
    if (digits.starts_with('+')) {
      digits.remove_prefix(1);
    }
    double value = 0;
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (digits.starts_with('+') || error == std::errc::invalid_argument ||
        stop != digits.data() + digits.size()) {
      throw PropertyListError("A real is no number", offset);
    }
    return error == std::errc::result_out_of_range ? PropertyListAccess::realFromText(text) : value;
  }

  static PropertyList date(std::string_view text, std::size_t offset) {
    static constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:ddZ";
    bool fits = text.size() == kForm.size();
    for (std::size_t i = 0; fits && i < text.size(); ++i) {
      fits = kForm[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == kForm[i];
    }
    if (!fits) {
      throw PropertyListError("A date is not of the form 2001-01-31T12:00:00Z", offset);
    }
    const auto number = [&](std::size_t start, std::size_t length) {
      int value = 0;
      std::from_chars(text.data() + start, text.data() + start + length, value);
      return value;
    };
    std::tm parts{};
    parts.tm_year = number(0, 4) - 1900;
    parts.tm_mon = number(5, 2) - 1;
    parts.tm_mday = number(8, 2);
    parts.tm_hour = number(11, 2);
    parts.tm_min = number(14, 2);
    parts.tm_sec = number(17, 2);
    return Date::fromUnixTime(static_cast<double>(timegm(&parts)));
  }

  static PropertyList data(std::string_view text, std::size_t offset) {
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int digits = 0;
    int padding = 0;
    for (const char c : text) {
      if (isXmlBlank(c)) {
        continue;
      }
      if (c == '=') {
        ++padding;
        continue;
      }
      const std::optional<std::uint32_t> digit = base64Digit(c);
      if (!digit || padding > 0) {
        throw PropertyListError("Data is not in base64", offset);
      }
      group = group << 6 | *digit;
      if (++digits == 4) {
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        bytes.push_back(static_cast<std::uint8_t>(group));
        digits = 0;
      }
    }
    if (digits == 1 || padding > 2) {
      throw PropertyListError("Data is not in base64", offset);
    }
    if (digits >= 2) {
      bytes.push_back(static_cast<std::uint8_t>(group >> (digits == 2 ? 4 : 10)));
    }
    if (digits == 3) {
      bytes.push_back(static_cast<std::uint8_t>(group >> 2));
    }
    return PropertyList::data(bytes);
  }

  static std::optional<std::uint32_t> base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') {
      return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
      return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
      return c - '0' + 52;
    }
    return c == '+'   ? std::optional<std::uint32_t>(62)
           : c == '/' ? std::optional<std::uint32_t>(63)
                      : std::nullopt;
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

PropertyList readXmlPropertyList(std::string_view text) { return XmlReader(text).read(); }

}  // namespace keldane
