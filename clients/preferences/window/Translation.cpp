#include "clients/preferences/window/Translation.h"

#include <libintl.h>

#include <clocale>
#include <filesystem>

namespace keldane {

namespace {

constexpr char kDomain[] = "keldane-preferences";

}  // namespace

void beginTranslation() {
  // Without the language's own locale on this computer its texts can still be shown.
  if (std::setlocale(LC_ALL, "") == nullptr) {
    std::setlocale(LC_ALL, "C.UTF-8");
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
