// The command "config file-manager".
#pragma once

#include <CLI/CLI.hpp>

namespace keldane {

/// Adds the command to "config".
void addFileManagerCommand(CLI::App& config);

}  // namespace keldane
