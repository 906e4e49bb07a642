#include "platform/text/Format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr int kWidestField = 4096;

/// One conversion in a format, such as "%-8.3lx".
struct Conversion {
  std::string flags;
  int width = -1;
  int precision = -1;
  char letter = '\0';
  std::string_view text;  // as written
};

int number(std::string_view format, std::size_t& at) {
  int value = 0;
  for (; at < format.size() && format[at] >= '0' && format[at] <= '9'; ++at) {
    value = std::min(value * 10 + (format[at] - '0'), kWidestField);
  }
  return value;
}

/// Reads the conversion that begins at `at`, the place of a '%', and moves past it.
Conversion readConversion(std::string_view format, std::size_t& at) {
  const std::size_t start = at++;
  Conversion conversion;
  while (at < format.size() && std::string_view("-+ #0").find(format[at]) != std::string_view::npos) {
    if (conversion.flags.find(format[at]) == std::string::npos) {
      conversion.flags += format[at];
    }
    ++at;
  }
  if (at < format.size() && format[at] >= '1' && format[at] <= '9') {
    conversion.width = number(format, at);
  }
  if (at < format.size() && format[at] == '.') {
    ++at;
    conversion.precision = number(format, at);
  }
  while (at < format.size() && std::string_view("hlqzjt").find(format[at]) != std::string_view::npos) {
    ++at;  // an argument knows its own width
  }
  conversion.letter = at < format.size() ? format[at++] : '\0';
  conversion.text = format.substr(start, at - start);
  return conversion;
}

template <class Value>
std::string printed(const Conversion& conversion, const char* letters, Value value) {
  std::string form = "%" + conversion.flags;
  if (conversion.width >= 0) {
    form += std::to_string(conversion.width);
  }
  if (conversion.precision >= 0) {
    form += '.' + std::to_string(conversion.precision);
  }
  form += letters;
  // The format is made here, from a checked letter and a value of the type that it requires.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(nullptr, 0, form.c_str(), value);
  std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
  std::snprintf(text.data(), text.size(), form.c_str(), value);
#pragma GCC diagnostic pop
  text.pop_back();
  return text;
}

/// The text padded to the width of the field. The precision limits how many bytes of the text are used.
std::string padded(const Conversion& conversion, std::string text) {
  if (conversion.precision >= 0 && text.size() > static_cast<std::size_t>(conversion.precision)) {
    text.resize(static_cast<std::size_t>(conversion.precision));
  }
  if (conversion.width > 0 && text.size() < static_cast<std::size_t>(conversion.width)) {
    const bool left = conversion.flags.find('-') != std::string::npos;
    text.insert(left ? text.size() : 0, static_cast<std::size_t>(conversion.width) - text.size(), ' ');
  }
  return text;
}

/// The text of the argument without any conversion.
std::string plainText(const FormatArgument::Value& value) {
  if (const auto* text = std::get_if<std::string>(&value)) {
    return *text;
  }
  if (const auto* object = std::get_if<PropertyList>(&value)) {
    return object->description();
  }
  if (const auto* real = std::get_if<double>(&value)) {
    return PropertyList(*real).description();
  }
  const auto* unsignedValue = std::get_if<std::uint64_t>(&value);
  return unsignedValue != nullptr ? std::to_string(*unsignedValue)
                                  : std::to_string(std::get<std::int64_t>(value));
}

bool isInteger(const FormatArgument::Value& value) {
  return std::holds_alternative<std::int64_t>(value) || std::holds_alternative<std::uint64_t>(value);
}

std::string integerText(const Conversion& conversion, const FormatArgument& argument) {
  if (!isInteger(argument.value())) {
    return padded({conversion.flags, conversion.width, -1, 's', {}}, plainText(argument.value()));
  }
  const auto* asSigned = std::get_if<std::int64_t>(&argument.value());
  const std::uint64_t bits = asSigned != nullptr ? static_cast<std::uint64_t>(*asSigned) & argument.mask()
                                                 : std::get<std::uint64_t>(argument.value());
  switch (conversion.letter) {
    case 'c': {
      std::string character;
      appendUtf8(character, static_cast<char32_t>(std::min<std::uint64_t>(bits, 0x110000)));
      return padded(conversion, character);
    }
    case 'x':
      return printed(conversion, "llx", static_cast<unsigned long long>(bits));
    case 'X':
      return printed(conversion, "llX", static_cast<unsigned long long>(bits));
    case 'o':
      return printed(conversion, "llo", static_cast<unsigned long long>(bits));
    case 'u':
      return printed(conversion, "llu", static_cast<unsigned long long>(bits));
    default:
      return asSigned != nullptr ? printed(conversion, "lld", static_cast<long long>(*asSigned))
                                 : printed(conversion, "llu", static_cast<unsigned long long>(bits));
  }
}

std::string realText(const Conversion& conversion, const FormatArgument& argument) {
  const auto* real = std::get_if<double>(&argument.value());
  if (real == nullptr) {
    return padded({conversion.flags, conversion.width, -1, 's', {}}, plainText(argument.value()));
  }
  const char letters[] = {conversion.letter, '\0'};
  return printed(conversion, letters, *real);
}

bool isKnown(char letter) {
  return letter != '\0' && std::string_view("@sdiuxXocfeg").find(letter) != std::string_view::npos;
}

std::string converted(const Conversion& conversion, const FormatArgument* argument) {
  switch (conversion.letter) {
    case '@':
    case 's':
      return padded(conversion, argument == nullptr ? "(null)" : plainText(argument->value()));
    case 'f':
    case 'e':
    case 'g':
      return realText(conversion, argument == nullptr ? FormatArgument(0.0) : *argument);
    default:
      return integerText(conversion, argument == nullptr ? FormatArgument(0) : *argument);
  }
}

}  // namespace

FormatArgument::FormatArgument(const char* text) : value_(std::string(text == nullptr ? "(null)" : text)) {}

std::string formatWithArguments(std::string_view format, const FormatArgument* arguments, std::size_t count) {
  std::string result;
  result.reserve(format.size() + 16 * count);
  std::size_t next = 0;
  for (std::size_t at = 0; at < format.size();) {
    if (format[at] != '%') {
      const std::size_t end = std::min(format.find('%', at), format.size());
      result.append(format.substr(at, end - at));
      at = end;
      continue;
    }
    const Conversion conversion = readConversion(format, at);
    if (conversion.letter == '%') {
      result += '%';
    } else if (!isKnown(conversion.letter)) {
      result.append(conversion.text);
    } else {
      result += converted(conversion, next < count ? &arguments[next] : nullptr);
      ++next;
    }
  }
  return result;
}

}  // namespace keldane
