// Checks whether other users can replace the daemon's files.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace keldane {

/// The number that the system shows for every user and group without a number in this process's user
/// namespace. It does not identify a peer or the owner of a file.
constexpr uid_t kSomebody = 65534;

/// A sentence that says how a user other than root and this process's own could replace what lies in a
/// folder; nothing when none can. The folder must exist; symbolic links to it are followed first. Neither a
/// group nor others may be able to write to it, even with the sticky bit: they could still create a name
/// first. A folder above it may be writable by others if it has the sticky bit.
std::optional<std::string> whoElseCanWriteTo(const std::string& folder);

}  // namespace keldane
