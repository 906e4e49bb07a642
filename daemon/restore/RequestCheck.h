// Checks whether a request for a restore can be accepted.
#pragma once

#include <string>

#include "daemon/restore/RestoreJobs.h"

namespace keldane {

/// Brings the paths of a request into their plain form. Returns a sentence that says why the request is
/// refused; empty when it is not.
std::string refusalFor(RestoreRequest& request);

}  // namespace keldane
