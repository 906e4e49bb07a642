// Values of an information dictionary that differ from user to user.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldane {

/// The text with each "${NAME}" replaced by that variable of the environment, as it is now. XDG_RUNTIME_DIR
/// is what `runtimeFolder` answers. Absent when a variable is missing or empty, or a "${" begins no name that
/// ends in "}". A value is put in as it is: a reference in it stays. Any thread that may read the
/// environment.
std::optional<std::string> withVariables(std::string_view text);

}  // namespace keldane
