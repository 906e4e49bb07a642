// What the parser of command lines says by itself, in the user's language.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace keldane {

/// Before anything is added to a program's command line: its headings and its option for help.
void setHelpWords(CLI::App& app);
/// After everything was added, commands below commands included: the names of the groups.
void setGroupWords(CLI::App& app);

/// The parser's complaint about a command line. What is not known stays in English.
std::string parseErrorText(const CLI::ParseError& error);

}  // namespace keldane
