#include "hosts/cli/MenuOutput.h"

#include <algorithm>
#include <charconv>

namespace keldane {

namespace {

struct CommandWord {
  std::string_view word;
  std::uint32_t command;
};

constexpr CommandWord kWords[] = {
    {"backup", fourCharCode("r2d<")},       {"exclude", fourCharCode("r2d=")},
    {"asap", fourCharCode("r2d>")},         {"type-backup", fourCharCode("r2d?")},
    {"type-exclude", fourCharCode("r2d@")}, {"preferences", fourCharCode("r2dB")},
};

bool isPrintable(char c) { return c >= 0x20 && c < 0x7F; }

/// The four characters of a command, if they can be printed.
std::optional<std::string> codeText(std::uint32_t command) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += static_cast<char>(command >> shift);
  }
  return std::all_of(text.begin(), text.end(), isPrintable) ? std::optional(text) : std::nullopt;
}

std::string commandWord(std::uint32_t command) {
  const auto* found = std::find_if(std::begin(kWords), std::end(kWords),
                                   [&](const CommandWord& entry) { return entry.command == command; });
  if (found != std::end(kWords)) {
    return std::string(found->word);
  }
  const std::optional<std::string> text = codeText(command);
  return text ? "'" + *text + "'" : std::to_string(command);
}

void appendItem(std::string& text, const MenuItem& item, const std::string& indent) {
  const std::string title = item.isSeparator()    ? "---"
                            : !item.isChoosable() ? "(" + item.title + ")"
                            : !item.items.empty() ? item.title
                                                  : item.title + " [" + commandWord(item.command) + "]";
  text += indent + title + '\n';
  for (const MenuItem& child : item.items) {
    appendItem(text, child, indent + "  ");
  }
}

nlohmann::ordered_json itemJson(const MenuItem& item) {
  const std::optional<std::string> text = codeText(item.command);
  return {
      {"title", item.title},
      {"command", text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json(item.command)},
      {"commandSize", item.commandSize},
      {"attributes", item.attributes ? nlohmann::ordered_json(*item.attributes) : nlohmann::ordered_json()}};
}

}  // namespace

std::optional<OSType> fourCharCodeNamed(const std::string& text) {
  if (text.size() != 4) {
    return std::nullopt;
  }
  OSType code = 0;
  for (const char c : text) {
    code = code << 8 | static_cast<std::uint8_t>(c);
  }
  return code;
}

std::optional<std::uint32_t> commandNamed(const std::string& text) {
  const auto* found = std::find_if(std::begin(kWords), std::end(kWords),
                                   [&](const CommandWord& entry) { return entry.word == text; });
  if (found != std::end(kWords)) {
    return found->command;
  }
  if (text.size() == 6 && text.front() == '\'' && text.back() == '\'') {
    return fourCharCodeNamed(text.substr(1, 4));
  }
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = std::string_view(text).substr(hexadecimal ? 2 : 0);
  std::uint32_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
  if (error == std::errc() && end == digits.data() + digits.size()) {
    return number;
  }
  return fourCharCodeNamed(text);
}

std::string menuText(const std::vector<MenuItem>& menu) {
  std::string text;
  for (const MenuItem& item : menu) {
    appendItem(text, item, "");
  }
  return text;
}

nlohmann::ordered_json menuJson(const std::vector<MenuItem>& menu) {
  if (menu.empty()) {
    return nullptr;
  }
  nlohmann::ordered_json top = itemJson(menu.front());
  top["items"] = nlohmann::ordered_json::array();
  for (const MenuItem& item : menu.front().items) {
    top["items"].push_back(itemJson(item));
  }
  return top;
}

}  // namespace keldane
