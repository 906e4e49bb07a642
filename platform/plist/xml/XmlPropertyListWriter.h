// The XML property-list format, as this system writes it.
#pragma once

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The document of `value`, indented by tabs, keys in their order; throws PropertyListError when the value
/// holds an absent one, is nested too deep, or would grow beyond 1 GiB (a shared part is written at each of
/// its places). Characters that XML cannot hold become U+FFFD. Dates are written to the second.
Bytes writeXmlPropertyList(const PropertyList& value);

}  // namespace keldane
