#include "platform/bundle/Languages.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace keldane {

std::vector<std::string> preferredLanguages() {
  std::vector<std::string> languages;
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') {
      continue;
    }
    std::string locale = value;
    locale.resize(std::min(locale.find_first_of(".@"), locale.size()));
    // The name is checked because it becomes part of a path.
    const bool isName = std::all_of(locale.begin(), locale.end(), [](unsigned char c) {
      return c < 128 && (std::isalnum(c) != 0 || c == '_' || c == '-');
    });
    if (isName && !locale.empty() && locale != "C" && locale != "POSIX") {
      languages.push_back(locale);
      const std::size_t territory = locale.find_first_of("_-");
      if (territory != std::string::npos && territory > 0) {
        languages.push_back(locale.substr(0, territory));
      }
    }
    break;
  }
  languages.emplace_back("en");
  return languages;
}

}  // namespace keldane
