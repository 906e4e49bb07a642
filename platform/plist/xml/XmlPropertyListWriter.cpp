#include "platform/plist/xml/XmlPropertyListWriter.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListNode.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr std::size_t kLongestDocument = std::size_t{1} << 30;

/// Whether a character needs no escape.
constexpr bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '&' && c != '<' && c != '>'; }

class XmlWriter {
 public:
  Bytes write(const PropertyList& value) {
    text_ =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n";
    put(value, 0);
    text_ += "</plist>\n";
    return {text_.begin(), text_.end()};
  }

 private:
  void put(const PropertyList& value, int depth) {
    if (text_.size() > kLongestDocument) {
      throw PropertyListError("The value's XML text is longer than 1 GiB.");
    }
    indent(depth);
    switch (value.kind()) {
      case PropertyList::Kind::string:
        putElement("string", value.string());
        return;
      case PropertyList::Kind::number:
        putNumber(value);
        return;
      case PropertyList::Kind::date:
        putElement("date", dateText(value.date()));
        return;
      case PropertyList::Kind::data:
        putData(value.data(), depth);
        return;
      case PropertyList::Kind::array:
      case PropertyList::Kind::dictionary:
        putContainer(value, depth);
        return;
      case PropertyList::Kind::absent:
        throw PropertyListError("A container holds no value where one belongs.");
    }
  }

  void putElement(std::string_view name, std::string_view content) {
    text_.append("<").append(name).append(">");
    putEscaped(content);
    text_.append("</").append(name).append(">\n");
  }

  void putEscaped(std::string_view content) {
    bool valid = true;
    for (std::size_t i = 0; i < content.size();) {
      const auto plainEnd =
          std::find_if_not(content.begin() + static_cast<std::ptrdiff_t>(i), content.end(), isPlain);
      const auto end = static_cast<std::size_t>(plainEnd - content.begin());
      text_.append(content.substr(i, end - i));
      i = end;
      if (i == content.size()) {
        return;
      }
      const char32_t character = nextCharacter(content, i, valid);
      switch (character) {
        case '&':
          text_ += "&amp;";
          break;
        case '<':
          text_ += "&lt;";
          break;
        case '>':
          text_ += "&gt;";
          break;
        case '\r':
          text_ += "&#13;";  // an unescaped one would be read back as a line feed
          break;
        default:
          const bool unfit = (character < 0x20 && character != '\t' && character != '\n') ||
                             character == 0xFFFE || character == 0xFFFF;
          appendUtf8(text_, unfit ? kReplacementCharacter : character);
      }
    }
  }

  void putNumber(const PropertyList& value) {
    switch (value.numberKind()) {
      case PropertyList::NumberKind::boolean:
        text_ += value.boolValue() ? "<true/>\n" : "<false/>\n";
        return;
      case PropertyList::NumberKind::real: {
        const double real = value.doubleValue();
        putElement("real", std::isnan(real)   ? "nan"
                           : std::isinf(real) ? (real > 0 ? "+infinity" : "-infinity")
                                              : value.description());
        return;
      }
      default:
        putElement("integer", value.description());
    }
  }

  static std::string dateText(Date date) {
    const double seconds = std::floor(date.unixTime());
    if (!(seconds > -62135596800.0 && seconds < 253402300800.0)) {
      throw PropertyListError("A date lies outside the years 1 to 9999.");
    }
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[40];
    const int length =
        std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                      parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return {text, static_cast<std::size_t>(length)};
  }

  void putData(BytesView bytes, int depth) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t kBytesPerLine = 57;  // 76 characters
    text_ += "<data>\n";
    for (std::size_t line = 0; line < bytes.size(); line += kBytesPerLine) {
      indent(depth);
      const BytesView part = bytes.subspan(line, std::min(kBytesPerLine, bytes.size() - line));
      for (std::size_t i = 0; i < part.size(); i += 3) {
        const auto byte = [&](std::size_t k) {
          return i + k < part.size() ? std::uint32_t{part[i + k]} : 0U;
        };
        const std::uint32_t group = byte(0) << 16 | byte(1) << 8 | byte(2);
        text_ += kDigits[group >> 18];
        text_ += kDigits[group >> 12 & 63];
        text_ += i + 1 < part.size() ? kDigits[group >> 6 & 63] : '=';
        text_ += i + 2 < part.size() ? kDigits[group & 63] : '=';
      }
      text_ += '\n';
    }
    indent(depth);
    text_ += "</data>\n";
  }

  void putContainer(const PropertyList& value, int depth) {
    if (depth >= PropertyListSerialization::kMaximumDepth) {
      throw PropertyListError("The containers are nested deeper than " +
                              std::to_string(PropertyListSerialization::kMaximumDepth) + " levels.");
    }
    const std::string_view name = value.isArray() ? "array" : "dict";
    if (value.count() == 0) {
      text_.append("<").append(name).append("/>\n");
      return;
    }
    text_.append("<").append(name).append(">\n");
    const PropertyListNode* node = PropertyListAccess::node(value);
    for (std::size_t i = 0; i < node->count; ++i) {
      if (value.isDictionary()) {
        indent(depth + 1);
        putElement("key", node->keys()->handles()[i].string());
      }
      put(node->members()[i], depth + 1);
    }
    indent(depth);
    text_.append("</").append(name).append(">\n");
  }

  void indent(int depth) { text_.append(static_cast<std::size_t>(depth), '\t'); }

  std::string text_;
};

}  // namespace

Bytes writeXmlPropertyList(const PropertyList& value) { return XmlWriter().write(value); }

}  // namespace keldane
