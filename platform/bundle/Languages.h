// The languages in which a user wants to read.
#pragma once

#include <string>
#include <vector>

namespace keldane {

/// From the most to the least wanted: the locale that the first set one of LC_ALL, LC_MESSAGES and LANG
/// names, with and without its territory, then English. Read from the environment at each call. A name that
/// could not be that of a language is left out.
std::vector<std::string> preferredLanguages();

}  // namespace keldane
