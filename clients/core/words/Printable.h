// Text that does nothing else where it is shown.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Names and answers come from anywhere: what would move the cursor, hide or turn round text around it, or is
/// no text, is written as an escape (\n, \x1b, \u202e).
std::string printable(std::string_view text);

}  // namespace keldane
