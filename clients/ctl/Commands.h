// The commands, each of which adds itself to the command line.
#pragma once

#include <CLI/CLI.hpp>

#include "clients/ctl/Session.h"

namespace keldane {

/// A flag that nothing is stored of; it is asked with `empty`.
inline CLI::Option* addFlag(CLI::App& command, const std::string& name, const std::string& description) {
  return command.add_flag(name, description);
}

void addStatusCommand(CLI::App& app, Globals& globals);
void addWatchCommand(CLI::App& app, Globals& globals);
/// pause, resume, automatic, low-priority, recover, profile, stop.
void addSettingCommands(CLI::App& app, Globals& globals);
/// add, remove, asap, type.
void addRuleCommands(CLI::App& app, Globals& globals);
/// ls, tree.
void addListCommands(CLI::App& app, Globals& globals);
void addSelectCommand(CLI::App& app, Globals& globals);
void addCompletionCommand(CLI::App& app);

}  // namespace keldane
