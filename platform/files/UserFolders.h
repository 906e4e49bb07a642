// The folders for a user's files, according to the XDG base directory conventions.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

namespace keldane {

/// The environment is read at each call. A value that is not absolute counts as unset, as the conventions
/// demand.
std::filesystem::path homeFolder();           ///< $HOME, else the folder in the user database
std::filesystem::path configurationFolder();  ///< $XDG_CONFIG_HOME, else ~/.config
std::vector<std::filesystem::path>
dataFolders();                        ///< $XDG_DATA_HOME or ~/.local/share, then each of $XDG_DATA_DIRS
std::filesystem::path stateFolder();  ///< $XDG_STATE_HOME, else ~/.local/state

/// The folder for the sockets of the effective user. $XDG_RUNTIME_DIR counts only if it is absolute and names
/// a folder, not a link, that belongs to the effective user and has mode 0700. So a value that another user's
/// session left in the environment (sudo, su) is ignored. Otherwise the result is the folder in `fallbacks`,
/// by default /run/user, that is named by the user's number, whether or not it exists. Absent when that is
/// not the user's own folder or others could write to it.
std::optional<std::filesystem::path> runtimeFolder(const std::filesystem::path& fallbacks = "/run/user");

}  // namespace keldane
