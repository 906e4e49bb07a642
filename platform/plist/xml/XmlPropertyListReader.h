// Reads the XML property-list format. The text may come from anybody.
#pragma once

#include <string_view>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The value of an XML document in UTF-8; throws PropertyListError. Only what a property list needs is known:
/// elements, the five entities and character references, CDATA, comments, processing instructions. A document
/// type is passed over: nothing is fetched, and a document that declares entities of its own is refused.
PropertyList readXmlPropertyList(std::string_view text);

}  // namespace keldane
