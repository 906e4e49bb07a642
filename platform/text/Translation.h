// The texts of programs and extensions in the user's language, translated by the system's gettext.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/text/Format.h"

namespace keldane {

/// Takes the locale of characters and messages from the environment. A program calls it at its start. An
/// extension does not call it, because the locale belongs to the program that loaded it. A program that never
/// calls it speaks English. `ownCatalogue` names a catalogue that is searched before the shared one.
void beginTranslation(const char* ownCatalogue = nullptr);

/// The text in the user's language, in UTF-8, or the text itself when there is no translation. Any thread may
/// call it.
const char* tr(const char* text);
/// Marks a text that is translated where it is used, not where it is written.
constexpr const char* marked(const char* text) { return text; }
/// The singular or plural form for a number, in the user's language. Any thread may call it.
const char* trn(const char* one, const char* many, unsigned long number);

/// A translated text with its "%s" filled in.
template <class... Arguments>
std::string filled(const char* pattern, const Arguments&... arguments) {
  return stringWithFormat(pattern, arguments...);
}

/// Rewrites a number in English form, such as "1,234.5", in the form of the user's language. Any thread may
/// call it.
std::string localNumber(std::string_view english);

/// A known text of another program. Each "%s" stands for any text that is not empty. That text is translated
/// in the same way unless it is a name.
struct KnownText {
  const char* text;
  /// The plural form of a text whose first "%s" is a number; null for other texts.
  const char* many = nullptr;
  bool holdsNames = false;
};
constexpr KnownText known(const char* text) { return {text}; }
constexpr KnownText known(const char* one, const char* many) { return {one, many}; }
/// A text in which "%s" stands for names and the like, which are not translated.
constexpr KnownText knownWithNames(const char* text) { return {text, nullptr, true}; }

/// The text in the user's language, by the first known text that fits. When none fits, a number is rewritten
/// in the form of the user's language and the text of a system error is translated; any other text is
/// returned unchanged. Any thread may call it.
std::string translated(std::string_view text, std::span<const KnownText> knownTexts);

}  // namespace keldane
