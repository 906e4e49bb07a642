// Reads the requests for restores that clients send.
#pragma once

#include <optional>
#include <string>

#include "daemon/restore/RestoreJobs.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// Reads a dictionary: "files", an array of paths or of dictionaries ("path", "version"); "target", a folder,
/// or "exactPath"; "conflict", one of "keepBoth", "replace" and "skip"; "before", a date. All but "files" may
/// be missing. Absent, with a sentence, for anything else.
std::optional<RestoreRequest> restoreRequestFrom(const PropertyList& choices, std::string* refusal);

}  // namespace keldane
