#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "platform/plist/PropertyList.h"
#include "platform/plist/PropertyListNode.h"
#include "platform/plist/PropertyListSerialization.h"

namespace keldane {

namespace {

// The length, in bytes, at which a description ends. The description of a value that shares its parts could
// exceed any memory.
constexpr std::size_t kLongestDescription = std::size_t{1} << 20;

bool needsQuotes(std::string_view text) {
  const auto plain = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$' || c == '/' || c == ':' || c == '.' || c == '-';
  };
  return text.empty() || !std::all_of(text.begin(), text.end(), plain);
}

std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    if (c == '\n') {
      result += "\\n";
    } else {
      result += c;
    }
  }
  return result + '"';
}

std::string numberText(const PropertyList& number) {
  char text[40];
  std::to_chars_result end{};
  switch (number.numberKind()) {
    case PropertyList::NumberKind::real:
      end = std::to_chars(text, text + sizeof(text), number.doubleValue());
      break;
    case PropertyList::NumberKind::unsignedInteger:
      end = std::to_chars(text, text + sizeof(text), number.unsignedLongLongValue());
      break;
    default:
      end = std::to_chars(text, text + sizeof(text), number.longLongValue());
      break;
  }
  return {text, end.ptr};
}

std::string dataText(BytesView bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (std::size_t i = 0; i < bytes.size() && text.size() < kLongestDescription; ++i) {
    if (i > 0 && i % 4 == 0) {
      text += ' ';
    }
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text + '>';
}

std::string dateText(Date date) {
  const double seconds = std::floor(date.unixTime());
  // For dates outside of the years 1 to 9999, the seconds themselves are the clearest text.
  if (!(seconds > -62135596800.0 && seconds < 253402300800.0)) {
    return std::to_string(date.secondsSinceReference) + " s";
  }
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S +0000", &parts);
  return {text, length};
}

std::string scalarText(const PropertyList& value) {
  switch (value.kind()) {
    case PropertyList::Kind::string:
      return std::string(value.string());
    case PropertyList::Kind::number:
      return numberText(value);
    case PropertyList::Kind::date:
      return dateText(value.date());
    case PropertyList::Kind::data:
      return dataText(value.data());
    default:
      return "(null)";
  }
}

class Describer {
 public:
  std::string describe(const PropertyList& value) {
    append(value, 0);
    if (text_.size() > kLongestDescription) {
      text_.resize(kLongestDescription);
      text_ += "…";
    }
    return std::move(text_);
  }

 private:
  void append(const PropertyList& value, int depth) {
    if (text_.size() > kLongestDescription) {
      return;
    }
    if (!value.isArray() && !value.isDictionary()) {
      const std::string text = scalarText(value);
      const bool quote = depth > 0 && (value.isString() || value.isDate()) && needsQuotes(text);
      text_ += quote ? quoted(text) : text;
      return;
    }
    if (depth > PropertyListSerialization::kMaximumDepth) {
      text_ += "…";
      return;
    }
    const bool isArray = value.isArray();
    const PropertyListNode* node = PropertyListAccess::node(value);
    text_ += isArray ? "(\n" : "{\n";
    for (std::size_t i = 0; i < node->count && text_.size() <= kLongestDescription; ++i) {
      indent(depth + 1);
      if (isArray) {
        append(node->handles()[i], depth + 1);
        text_ += i + 1 < node->count ? ",\n" : "\n";
      } else {
        append(node->keys()->handles()[i], depth + 1);
        text_ += " = ";
        append(node->values()[i], depth + 1);
        text_ += ";\n";
      }
    }
    indent(depth);
    text_ += isArray ? ")" : "}";
  }

  void indent(int depth) { text_.append(4 * static_cast<std::size_t>(depth), ' '); }

  std::string text_;
};

}  // namespace

std::string PropertyList::description() const { return Describer().describe(*this); }

double PropertyListAccess::realFromText(std::string_view text) noexcept {
  while (!text.empty() && (text.front() == ' ' || (text.front() >= '\t' && text.front() <= '\r'))) {
    text.remove_prefix(1);
  }
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') {
    text.remove_prefix(1);
  }
  double value = 0;
  const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    // The sign of the exponent tells whether the number is too large or too small.
    const bool tiny = text.substr(0, static_cast<std::size_t>(result.ptr - text.data())).find("e-") !=
                          std::string_view::npos ||
                      text.substr(0, static_cast<std::size_t>(result.ptr - text.data())).find("E-") !=
                          std::string_view::npos;
    const double magnitude = tiny ? 0 : HUGE_VAL;
    return text.front() == '-' ? -magnitude : magnitude;
  }
  return result.ec == std::errc() ? value : 0;
}

}  // namespace keldane
