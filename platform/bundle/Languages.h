// The user's preferred languages.
#pragma once

#include <string>
#include <vector>

namespace keldane {

/// The languages in the order of preference. The first of LC_ALL, LC_MESSAGES and LANG that is set names the
/// locale. It is listed with and without its territory, then follows English. The environment is read at each
/// call. A name that cannot be the name of a language is left out.
std::vector<std::string> preferredLanguages();

}  // namespace keldane
