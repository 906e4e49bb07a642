// Makes text safe to show.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Names and answers come from anywhere. Characters that would move the cursor, or hide or reverse the text
/// around them, and bytes that are no text are written as escapes (\n, \x1b, \u202e).
std::string printable(std::string_view text);

}  // namespace keldane
