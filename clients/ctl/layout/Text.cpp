#include "clients/ctl/layout/Text.h"

#include <algorithm>
#include <cmath>
#include <cwchar>

#include "clients/ctl/terminal/Terminal.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

std::size_t columnsTakenBy(char32_t character) {
  // wcwidth returns -1 for a character that the locale does not know.
  const int columns = wcwidth(static_cast<wchar_t>(character));
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    bool valid = true;
    columns += columnsTakenBy(nextCharacter(text, at, valid));
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
    left -= columnsTakenBy(nextCharacter(text, at, valid));
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
