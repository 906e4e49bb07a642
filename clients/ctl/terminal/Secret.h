// Asks a person questions at the terminal.
#pragma once

#include <string>

namespace keldane {

/// Whether there is a person to ask: standard input is a terminal.
bool isSomebodyThere();

/// Asks and returns the typed line, without blanks around it. Throws CommandFailure when nobody is there or
/// the input has ended.
std::string askLine(const std::string& question);
/// The same for a secret: the screen does not show it, and its blanks are kept.
std::string askSecret(const std::string& question);
/// Asks for yes or no; an empty line means `otherwise`.
bool askWhether(const std::string& question, bool otherwise);

}  // namespace keldane
