// Where a user's files belong, after the XDG base directory conventions.
#pragma once

#include <filesystem>
#include <vector>

namespace keldane {

/// The environment is read at each call. A value that is not absolute counts as unset, as the conventions
/// have it.
std::filesystem::path homeFolder();           ///< $HOME, else what the user database says
std::filesystem::path configurationFolder();  ///< $XDG_CONFIG_HOME, else ~/.config
std::vector<std::filesystem::path>
dataFolders();  ///< $XDG_DATA_HOME or ~/.local/share, then each of $XDG_DATA_DIRS

}  // namespace keldane
