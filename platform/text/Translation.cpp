#include "platform/text/Translation.h"

#include <dlfcn.h>
#include <libintl.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <vector>

#include "platform/bundle/Languages.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

constexpr char kShared[] = "keldane";
constexpr int kDeepest = 4;  // levels of texts within texts

std::atomic<const char*> ownCatalogueName = nullptr;

/// "share/locale" below the nearest folder above this library that has it, built or installed.
std::string catalogueFolder() {
  Dl_info library{};
  if (dladdr(kShared, &library) == 0 || library.dli_fname == nullptr) {
    return {};
  }
  std::error_code error;
  fs::path folder = fs::canonical(library.dli_fname, error);
  while (folder.has_relative_path()) {
    folder = folder.parent_path();
    if (fs::path found = folder / "share" / "locale"; fs::is_directory(found, error)) {
      return found.string();
    }
  }
  return {};
}

void bindCatalogue(const char* catalogue) {
  static const std::string folder = catalogueFolder();
  bindtextdomain(catalogue, folder.c_str());
  bind_textdomain_codeset(catalogue, "UTF-8");
}

const char* sharedCatalogue() {
  static const bool isBound = (bindCatalogue(kShared), true);
  return isBound ? kShared : nullptr;
}

/// Sets the locale. If this computer lacks it, the language is still chosen where the system allows that.
void takeLocale(int category) {
  if (std::setlocale(category, "") != nullptr) {
    return;
  }
  std::setlocale(category, "C.UTF-8");
  std::string languages;
  for (const std::string& language : preferredLanguages()) {
    languages += (languages.empty() ? "" : ":") + language;
  }
  setenv("LANGUAGE", languages.c_str(), 0);
}

/// The parts of the text that stand for each "%s"; absent when the text does not fit the pattern.
std::optional<std::vector<std::string_view>> partsOf(std::string_view text, std::string_view pattern) {
  constexpr std::string_view kPart = "%s";
  std::size_t at = pattern.find(kPart);
  if (!text.starts_with(pattern.substr(0, at))) {
    return std::nullopt;
  }
  std::vector<std::string_view> parts;
  text.remove_prefix(std::min(at, pattern.size()));
  while (at != std::string_view::npos) {
    pattern.remove_prefix(at + kPart.size());
    at = pattern.find(kPart);
    const std::string_view after = pattern.substr(0, at);
    const bool isLast = at == std::string_view::npos;
    if (isLast && !text.ends_with(after)) {
      return std::nullopt;
    }
    const std::size_t end = isLast ? text.size() - after.size() : text.find(after, 1);
    if (end == 0 || end == std::string_view::npos) {
      return std::nullopt;
    }
    parts.push_back(text.substr(0, end));
    text.remove_prefix(end + after.size());
  }
  return text.empty() ? std::optional(parts) : std::nullopt;
}

/// The number that a text holds, with or without commas between groups of digits; absent for any other text.
std::optional<unsigned long> numberIn(std::string_view text) {
  std::string digits(text);
  std::erase(digits, ',');
  unsigned long number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() && end == digits.data() + digits.size() ? std::optional(number) : std::nullopt;
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789,") == std::string_view::npos;
}

std::string translatedWithin(std::string_view text, std::span<const KnownText> knownTexts, int depth) {
  for (const KnownText& each : knownTexts) {
    auto parts = partsOf(text, each.text);
    if (!parts && each.many != nullptr) {
      parts = partsOf(text, each.many);
    }
    const auto number = parts && each.many != nullptr ? numberIn(parts->front()) : std::nullopt;
    if (!parts || (each.many != nullptr && !number)) {
      continue;
    }
    std::vector<std::string> translations;
    for (const std::string_view part : *parts) {
      translations.push_back(depth > 0 && !each.holdsNames ? translatedWithin(part, knownTexts, depth - 1)
                                                           : std::string(part));
    }
    const std::vector<FormatArgument> arguments(translations.begin(), translations.end());
    const char* const pattern = number ? trn(each.text, each.many, *number) : tr(each.text);
    return formatWithArguments(pattern, arguments.data(), arguments.size());
  }
  if (isNumber(text)) {
    return localNumber(text);
  }
  // The other program has the system's text for an error number in English.
  return text.empty() ? std::string() : dgettext("libc", std::string(text).c_str());
}

}  // namespace

void beginTranslation(const char* ownCatalogue) {
  takeLocale(LC_CTYPE);
  takeLocale(LC_MESSAGES);
  if (ownCatalogue != nullptr) {
    bindCatalogue(ownCatalogue);
    ownCatalogueName = ownCatalogue;
  }
}

const char* tr(const char* text) {
  if (*text == '\0') {
    return text;  // its translation would be the catalogue's header
  }
  if (const char* const own = ownCatalogueName) {
    if (const char* const found = dgettext(own, text); found != text) {
      return found;
    }
  }
  return dgettext(sharedCatalogue(), text);
}

const char* trn(const char* one, const char* many, unsigned long number) {
  if (const char* const own = ownCatalogueName) {
    if (const char* const found = dngettext(own, one, many, number); found != one && found != many) {
      return found;
    }
  }
  return dngettext(sharedCatalogue(), one, many, number);
}

std::string localNumber(std::string_view english) {
  constexpr const char* kSample = marked("1,234.5");
  const std::string sample = tr(kSample);
  const std::size_t second = sample.find("234"), last = sample.rfind('5');
  if (second == std::string::npos || second == 0 || last == std::string::npos || last < second + 3) {
    return std::string(english);
  }
  const std::string group = sample.substr(1, second - 1),
                    point = sample.substr(second + 3, last - second - 3);
  std::string text;
  for (const char c : english) {
    text += c == ',' ? group : c == '.' ? point : std::string(1, c);
  }
  return text;
}

std::string translated(std::string_view text, std::span<const KnownText> knownTexts) {
  return translatedWithin(text, knownTexts, kDeepest);
}

}  // namespace keldane
