// What nodes are sorted by.
#pragma once

#include <functional>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Negative, zero or positive as the first value comes before, beside or after the second. A strict weak
/// order.
using Comparison = std::function<int(const PropertyList& first, const PropertyList& second)>;

/// Absent values come first; strings by their bytes, numbers by value, dates by time, arrays and dictionaries
/// by their counts. Values of different kinds are ordered by kind.
int compare(const PropertyList& first, const PropertyList& second);
/// The same, strings by the order of the process's locale; equal ones by their bytes.
int localizedCompare(const PropertyList& first, const PropertyList& second);

/// One key to sort by; the first of a list decides, later ones break ties.
struct SortDescriptor {
  std::string key;  ///< an accessor of the node by name, such as "fileName" or "size"
  bool ascending = true;
  Comparison comparison = compare;
};

}  // namespace keldane
