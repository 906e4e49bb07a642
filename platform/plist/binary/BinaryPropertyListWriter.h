// Writes the binary property-list format, version 00.
#pragma once

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The bytes of `value`; throws PropertyListError when it holds an absent value or is nested too deep. Equal
/// strings and scalars are written once, and so is a container that is shared. An integer takes the fewest
/// bytes of 1, 2, 4 and 8. Negative integers take 8 bytes, and those above the signed range 16. The same
/// value always gives the same bytes.
Bytes writeBinaryPropertyList(const PropertyList& value);

}  // namespace keldane
