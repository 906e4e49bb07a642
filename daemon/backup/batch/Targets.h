// The targets for the storage program: the shortest list of folders and files that is exactly what is wanted.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "daemon/rules/RuleBook.h"

namespace keldane {

/// Whether a file or link is to be stored.
using WantedFile = std::function<bool(const std::string& path)>;

/// Walks the places and returns folders whose whole contents are wanted, and single files. A folder in the
/// answer holds nothing that is not wanted, unless somebody adds it meanwhile. Folders that belong into the
/// backup and are empty are answered too. Links are not followed.
std::vector<std::string> targetsIn(const std::vector<std::string>& places, const RuleBook& rules,
                                   const WantedFile& wanted);

}  // namespace keldane
