// The commands, each of which adds itself to the command line.
#pragma once

#include <CLI/CLI.hpp>

#include "clients/ctl/Session.h"

namespace keldane {

/// Adds a flag without a variable of its own; the caller asks for it with `empty`.
inline CLI::Option* addFlag(CLI::App& command, const std::string& name, const std::string& description) {
  return command.add_flag(name, description);
}

void addStatusCommand(CLI::App& app, Globals& globals);
void addWatchCommand(CLI::App& app, Globals& globals);
/// pause, resume, automatic, low-priority, profile, stop.
void addSettingCommands(CLI::App& app, Globals& globals);
/// Carries out "recover on" and "recover off".
void turnRecoverMode(const Globals& globals, bool on);
/// add, remove, asap, inherit.
void addRuleCommands(CLI::App& app, Globals& globals);
void addTypeCommand(CLI::App& app, Globals& globals);
/// ls, tree.
void addListCommands(CLI::App& app, Globals& globals);
void addSelectCommand(CLI::App& app, Globals& globals);
void addSetupCommand(CLI::App& app, Globals& globals);
/// versions, find, failures.
void addStoredCommands(CLI::App& app, Globals& globals);
void addWhyCommand(CLI::App& app, Globals& globals);
void addRestoreCommand(CLI::App& app, Globals& globals);
/// repository, check, settings.
void addRepositoryCommands(CLI::App& app, Globals& globals);
/// repository move.
void addMoveCommand(CLI::App& repository, Globals& globals);
/// key export, import, sheet, verify, passphrase, change.
void addKeyCommands(CLI::App& app, Globals& globals);
void addRecoverCommand(CLI::App& app, Globals& globals);
/// service, log.
void addServiceCommands(CLI::App& app, Globals& globals);
/// config, metrics.
void addAdministrationCommands(CLI::App& app, Globals& globals);
void addCompletionCommand(CLI::App& app);

}  // namespace keldane
