// The languages in which a user wants to read.
#pragma once

#include <string>
#include <vector>

namespace keldane {

/// The languages in the order of preference: the locale that the first set one of LC_ALL, LC_MESSAGES and
/// LANG names, with and without its territory, then English. The environment is read at each call. A name
/// that cannot be the name of a language is left out.
std::vector<std::string> preferredLanguages();

}  // namespace keldane
