// Whether others can put their own thing in place of the daemon's.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace keldane {

/// What the system shows for every user and group that has no number in this process's user namespace:
/// neither a peer of that number nor a file of it tells who it is.
constexpr uid_t kSomebody = 65534;

/// A sentence that says how a user other than root and this process's own could replace what lies in a
/// folder; nothing when none can. The folder must exist; symbolic links to it are followed first. It must not
/// be open for writing to a group or to others, even if they can take away only what is their own there: they
/// could still be first with a name. A folder above it may be so, if nobody can rename there what is not his.
std::optional<std::string> whoElseCanWriteTo(const std::string& folder);

}  // namespace keldane
