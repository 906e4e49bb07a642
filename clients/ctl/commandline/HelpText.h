// Translates the command-line parser's own texts.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace keldane {

/// Sets the headings and the option for help. Called before anything is added to a program's command line.
void setHelpWords(CLI::App& app);
/// Sets the names of the groups, also for commands of commands. Called after everything was added.
void setGroupWords(CLI::App& app);

/// The parser's complaint about a command line. An unknown complaint stays in English.
std::string parseErrorText(const CLI::ParseError& error);

}  // namespace keldane
