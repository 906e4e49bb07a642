// The daemon's state in the format of a monitoring system.
#pragma once

#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// OpenMetrics text, including its end line. `repository` is the daemon's answer to "repository:" and `state`
/// its state; both are absent when the daemon cannot be reached. `now` is in seconds since the UNIX epoch.
std::string metricsText(const PropertyList& repository, const PropertyList& state, double now);

}  // namespace keldane
