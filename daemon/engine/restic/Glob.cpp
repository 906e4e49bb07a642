#include "daemon/engine/restic/Glob.h"

#include <cstdint>
#include <optional>

namespace keldane {
namespace {

// U+FFFD, which stands for a byte that is not UTF-8.
constexpr std::string_view kToldByte = "\xEF\xBF\xBD";

/// Length of the UTF-8 sequence at the beginning; 0 when there is none.
std::size_t sequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t first = byte(0);
  const std::size_t length = first < 0x80   ? 1
                             : first < 0xC2 ? 0
                             : first < 0xE0 ? 2
                             : first < 0xF0 ? 3
                             : first < 0xF5 ? 4
                                            : 0;
  if (length < 2 || text.size() < length) {
    return length == 1 ? 1 : 0;
  }
  const std::uint8_t lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const std::uint8_t highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) {
    return 0;
  }
  for (std::size_t i = 2; i < length; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) {
      return 0;
    }
  }
  return length;
}

/// Removes and returns the first character. A byte that is not UTF-8 counts as a character.
std::string_view takeCharacter(std::string_view& text) {
  const std::size_t length = sequenceLength(text);
  const std::string_view character = text.substr(0, length == 0 ? 1 : length);
  text.remove_prefix(character.size());
  return character;
}

/// Removes and returns one end of a range: a character, possibly after a backslash.
std::optional<std::string_view> takeEnd(std::string_view& pattern) {
  if (pattern.starts_with('\\')) {
    pattern.remove_prefix(1);
  }
  return pattern.empty() ? std::nullopt : std::optional(takeCharacter(pattern));
}

/// Removes the rest of a set "[...]" whose "[" was removed already, and returns whether the character is in
/// it. Comparing UTF-8 bytes gives the order of code points.
std::optional<bool> takeSet(std::string_view& pattern, std::string_view character) {
  const bool negated = pattern.starts_with('^');
  pattern.remove_prefix(negated ? 1 : 0);
  bool isIn = false;
  for (bool first = true; first || !pattern.starts_with(']'); first = false) {
    const std::optional<std::string_view> low = takeEnd(pattern);
    std::optional<std::string_view> high = low;
    if (pattern.size() > 1 && pattern[0] == '-' && pattern[1] != ']') {
      pattern.remove_prefix(1);
      high = takeEnd(pattern);
    }
    if (!low || !high) {
      return std::nullopt;
    }
    isIn = isIn || (*low <= character && character <= *high);
  }
  pattern.remove_prefix(1);
  return isIn != negated;
}

/// Removes one item other than `*` from the pattern, and the character that it matches from the name.
bool takeItem(std::string_view& pattern, std::string_view& name) {
  if (name.empty()) {
    return false;
  }
  const std::string_view item = takeCharacter(pattern);
  const std::string_view character = takeCharacter(name);
  if (item == "?") {
    return true;
  }
  if (item == "[") {
    return takeSet(pattern, character).value_or(false);
  }
  if (item == "\\") {
    return !pattern.empty() && takeCharacter(pattern) == character;
  }
  return item == character;
}

std::string_view takeFolder(std::string_view& path) {
  const std::size_t slash = path.find('/');
  const std::string_view folder = path.substr(0, slash);
  path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
  return folder;
}

bool matchesFolders(std::string_view pattern, std::string_view path) {
  while (!pattern.empty()) {
    const std::string_view item = takeFolder(pattern);
    if (item == "**") {
      for (;;) {
        if (matchesFolders(pattern, path)) {
          return true;
        }
        if (path.empty()) {
          return false;
        }
        takeFolder(path);
      }
    }
    if (path.empty() || !matchesName(item, takeFolder(path))) {
      return false;
    }
  }
  return path.empty();
}

}  // namespace

std::string escapedPattern(std::string_view text) {
  std::string pattern;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.substr(i).starts_with(kToldByte)) {
      pattern.push_back('?');
      i += kToldByte.size() - 1;
      continue;
    }
    const char letter = text[i];
    if (std::string_view("*?[\\").find(letter) != std::string_view::npos) {
      pattern.push_back('\\');
    }
    pattern.push_back(letter);
  }
  return pattern;
}

bool matchesName(std::string_view pattern, std::string_view name) {
  // Only the last star can have matched too little: if an earlier one matched more, less would be left for
  // the rest.
  std::optional<std::string_view> afterStar;
  std::string_view starTook;
  for (;;) {
    if (pattern.starts_with('*')) {
      pattern.remove_prefix(1);
      afterStar = pattern;
      starTook = name;
      continue;
    }
    if (pattern.empty() && name.empty()) {
      return true;
    }
    if (!pattern.empty() && takeItem(pattern, name)) {
      continue;
    }
    if (!afterStar || starTook.empty()) {
      return false;
    }
    takeCharacter(starTook);
    pattern = *afterStar;
    name = starTook;
  }
}

bool matchesPath(std::string_view pattern, std::string_view path) {
  if (!pattern.starts_with('/') || !path.starts_with('/')) {
    return false;
  }
  return matchesFolders(pattern.substr(1), path.substr(1));
}

std::string shownText(std::string_view bytes) {
  std::string shown;
  while (!bytes.empty()) {
    if (sequenceLength(bytes) == 0) {
      shown += "\xEF\xBF\xBD";
      bytes.remove_prefix(1);
    } else {
      shown += takeCharacter(bytes);
    }
  }
  return shown;
}

}  // namespace keldane
