// Asks a person for the place of the backup.
#pragma once

#include <string>

#include "clients/ctl/setup/Place.h"

namespace keldane {

/// Asks in plain words, at the terminal. `dataFolder` is the daemon's own folder, for a repository on this
/// disk. Throws CommandFailure when nobody is there.
Place askForPlace(const std::string& dataFolder);

}  // namespace keldane
