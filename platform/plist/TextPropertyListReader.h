// The old text property-list format, and the strings tables that are written in it.
#pragma once

#include <string_view>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The value of a text in UTF-8; throws PropertyListError. The text may hold { key = value; }, ( element,
/// element ), <hexadecimal data>, "quoted" and bare words, and // and /* */ comments. Entries without braces
/// around them, as in a strings table, are a dictionary; there "word;" stands for "word = word;". Every
/// scalar is a string.
PropertyList readTextPropertyList(std::string_view text);

}  // namespace keldane
