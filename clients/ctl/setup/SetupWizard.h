// Asks a person where the backup is to be kept.
#pragma once

#include <string>

#include "clients/ctl/setup/Place.h"

namespace keldane {

/// In plain words, at the terminal. `dataFolder` is the daemon's own folder, for a repository on this disk.
/// Throws CommandFailure when nobody is there.
Place askForPlace(const std::string& dataFolder);

}  // namespace keldane
