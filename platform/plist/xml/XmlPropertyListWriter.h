// Writes the XML property-list format.
#pragma once

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The document of `value`, indented by tabs, with the keys in their order. Throws PropertyListError when the
/// value holds an absent value, is nested too deep, or when the document would grow beyond 1 GiB. A shared
/// part is written at each of its places. Characters that XML cannot hold become U+FFFD. Dates are written to
/// the second.
Bytes writeXmlPropertyList(const PropertyList& value);

}  // namespace keldane
