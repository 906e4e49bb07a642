// The texts of programs and extensions in the user's language, by the system's gettext.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/text/Format.h"

namespace keldane {

/// Takes the locale of characters and messages from the environment. For a program, at its start; an
/// extension leaves the locale to the program that loaded it, and a program that never calls this speaks
/// English. `ownCatalogue` names a catalogue that is looked into before the one that all share.
void beginTranslation(const char* ownCatalogue = nullptr);

/// The text in the user's language, or as it is. UTF-8. Any thread.
const char* tr(const char* text);
/// A text that is translated where it is used, not where it stands.
constexpr const char* marked(const char* text) { return text; }
/// The form that a number of things takes. Any thread.
const char* trn(const char* one, const char* many, unsigned long number);

/// A translated text with its "%s" filled in.
template <class... Arguments>
std::string filled(const char* pattern, const Arguments&... arguments) {
  return stringWithFormat(pattern, arguments...);
}

/// A number in English digits, such as "1,234.5", as the user's language writes it. Any thread.
std::string localNumber(std::string_view english);

/// A text of another program's that this one knows. Each "%s" stands for any text that is not empty, which is
/// translated likewise unless it is a name.
struct KnownText {
  const char* text;
  /// For a text about a number, which is its first "%s": how `text` reads for more than one. Else null.
  const char* many = nullptr;
  bool holdsNames = false;
};
constexpr KnownText known(const char* text) { return {text}; }
constexpr KnownText known(const char* one, const char* many) { return {one, many}; }
/// One in which "%s" stands for names and the like, which are as they are in every language.
constexpr KnownText knownWithNames(const char* text) { return {text, nullptr, true}; }

/// A text that was composed of the first known one that fits, in the user's language; as it is when none
/// fits, but for an error of the system's. Any thread.
std::string translated(std::string_view text, std::span<const KnownText> knownTexts);

}  // namespace keldane
