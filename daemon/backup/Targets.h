// What the storage program is told to store: as few folders and files as say it exactly.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "daemon/rules/RuleBook.h"

namespace keldane {

/// Whether a file or link is to be stored.
using WantedFile = std::function<bool(const std::string& path)>;

/// Walks the places and answers folders all of whose contents are wanted, and single files. Nothing that is
/// not wanted lies in a folder that is answered, as long as nobody adds to it meanwhile. Folders that belong
/// into the backup and are empty are answered too. Links are not followed.
std::vector<std::string> targetsIn(const std::vector<std::string>& places, const RuleBook& rules,
                                   const WantedFile& wanted);

}  // namespace keldane
