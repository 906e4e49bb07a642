// Matching of names and paths with patterns.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// A pattern of the storage program's that matches exactly this text.
std::string escapedPattern(std::string_view text);

/// Whether a name matches a pattern of `*`, `?`, `[a-z]`, `[^a-z]` and `\` before a character that stands for
/// itself. `?` and a range take one character of UTF-8. A name holds no slash. A pattern that is broken
/// matches nothing.
bool matchesName(std::string_view pattern, std::string_view name);

/// The same for absolute paths, folder by folder; a folder `**` stands for any number of folders.
bool matchesPath(std::string_view pattern, std::string_view path);

/// The text as the storage program's JSON shows it: each byte that is no part of UTF-8 reads as U+FFFD.
std::string shownText(std::string_view bytes);

}  // namespace keldane
