// The program's texts in the user's language.
#pragma once

#include <string>

#include "platform/text/Format.h"

namespace keldane {

/// Sets the locale, and where the translations lie: beside the folder of the program, in share/locale. Once,
/// before any text.
void beginTranslation();

/// The text in the user's language, or as it is.
const char* tr(const char* text);
/// A text that is translated where it is used, not where it stands.
constexpr const char* marked(const char* text) { return text; }
/// The form that a number of things takes.
const char* trn(const char* one, const char* many, unsigned long number);

/// A translated text with its "%s" filled in.
template <class... Arguments>
std::string filled(const char* pattern, const Arguments&... arguments) {
  return stringWithFormat(pattern, arguments...);
}

}  // namespace keldane
