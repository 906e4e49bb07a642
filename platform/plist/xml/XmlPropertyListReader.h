// Reads the XML property-list format. The text is not trusted.
#pragma once

#include <string_view>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The value of an XML document in UTF-8; throws PropertyListError. The reader supports only the parts of XML
/// that a property list needs: elements, the five entities and character references, CDATA, comments,
/// processing instructions. A document type is skipped and nothing is fetched. A document that declares
/// entities of its own is refused.
PropertyList readXmlPropertyList(std::string_view text);

}  // namespace keldane
