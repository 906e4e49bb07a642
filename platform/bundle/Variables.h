// Values of an information dictionary that differ from user to user.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldane {

/// The text with each "${NAME}" replaced by that variable of the environment, as it is now. The value of
/// XDG_RUNTIME_DIR is the result of `runtimeFolder`. Absent when a variable is missing or empty, or when no
/// "}" follows a "${". References inside a value are not replaced. Any thread that may read the environment
/// may call it.
std::optional<std::string> withVariables(std::string_view text);

}  // namespace keldane
