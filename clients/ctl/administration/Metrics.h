// The daemon's standing as a monitoring system reads it.
#pragma once

#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// OpenMetrics text, with its end. `repository` is the daemon's answer to "repository:" and `state` its
/// state; both absent when it cannot be reached. `now` is in seconds since the UNIX epoch.
std::string metricsText(const PropertyList& repository, const PropertyList& state, double now);

}  // namespace keldane
