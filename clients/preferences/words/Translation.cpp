#include "clients/preferences/words/Translation.h"

#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "platform/bundle/Languages.h"

namespace keldane {

namespace {

constexpr char kDomain[] = "keldane-preferences";

}  // namespace

void beginTranslation() {
  if (std::setlocale(LC_ALL, "") == nullptr) {
    // A language whose locale this computer lacks can be read all the same.
    std::setlocale(LC_ALL, "C.UTF-8");
    std::string languages;
    for (const std::string& language : preferredLanguages()) {
      languages += (languages.empty() ? "" : ":") + language;
    }
    setenv("LANGUAGE", languages.c_str(), 0);
  }
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  bindtextdomain(kDomain, (program.parent_path().parent_path() / "share/locale").c_str());
  bind_textdomain_codeset(kDomain, "UTF-8");
}

const char* tr(const char* text) { return dgettext(kDomain, text); }

const char* trn(const char* one, const char* many, unsigned long number) {
  return dngettext(kDomain, one, many, number);
}

}  // namespace keldane
