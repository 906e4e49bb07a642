// The keys and orders by which nodes are sorted.
#pragma once

#include <functional>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Negative, zero or positive when the first value comes before the second, equals it or comes after it. The
/// order is a strict weak one.
using Comparison = std::function<int(const PropertyList& first, const PropertyList& second)>;

/// Absent values come first. Strings are ordered by their bytes, numbers by value, dates by time, and data,
/// arrays and dictionaries by their counts. Values of different kinds are ordered by kind.
int compare(const PropertyList& first, const PropertyList& second);
/// The same, but strings are in the order of the process's locale. Strings that are equal there are ordered
/// by their bytes.
int localizedCompare(const PropertyList& first, const PropertyList& second);

/// One key to sort by. The first descriptor of a list decides; later ones break ties.
struct SortDescriptor {
  std::string key;  ///< an accessor of the node by name, such as "fileName" or "size"
  bool ascending = true;
  Comparison comparison = compare;
};

}  // namespace keldane
