// Questions to a person at the terminal.
#pragma once

#include <string>

namespace keldane {

/// Whether there is a person to be asked: standard input is a terminal.
bool isSomebodyThere();

/// The line that is typed, without blanks around it. Throws CommandFailure when there is nobody, or the input
/// has ended.
std::string askLine(const std::string& question);
/// The same for what nobody may read on the screen; its blanks are kept.
std::string askSecret(const std::string& question);
/// Yes or no; an empty line is `otherwise`.
bool askWhether(const std::string& question, bool otherwise);

}  // namespace keldane
