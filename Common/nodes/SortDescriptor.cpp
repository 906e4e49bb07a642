#include "Common/nodes/SortDescriptor.h"

#include <cstring>

namespace keldane {

namespace {

template <class Value>
int order(const Value& first, const Value& second) {
  return first < second ? -1 : second < first ? 1 : 0;
}

int compareNumbers(const PropertyList& first, const PropertyList& second) {
  using Kind = PropertyList::NumberKind;
  if (first.numberKind() == Kind::real || second.numberKind() == Kind::real) {
    const double one = first.doubleValue(), other = second.doubleValue();
    // NaN comes before all numbers.
    return one == one && other == other ? order(one, other) : order(one == one, other == other);
  }
  const bool firstIsNegative = first.numberKind() != Kind::unsignedInteger && first.longLongValue() < 0;
  const bool secondIsNegative = second.numberKind() != Kind::unsignedInteger && second.longLongValue() < 0;
  if (firstIsNegative != secondIsNegative) {
    return firstIsNegative ? -1 : 1;
  }
  return firstIsNegative ? order(first.longLongValue(), second.longLongValue())
                         : order(first.unsignedLongLongValue(), second.unsignedLongLongValue());
}

}  // namespace

int compare(const PropertyList& first, const PropertyList& second) {
  if (first.kind() != second.kind()) {
    return order(first.kind(), second.kind());
  }
  switch (first.kind()) {
    case PropertyList::Kind::string:
      return first.string().compare(second.string());
    case PropertyList::Kind::number:
      return compareNumbers(first, second);
    case PropertyList::Kind::date:
      return order(first.date().secondsSinceReference, second.date().secondsSinceReference);
    case PropertyList::Kind::data:
      return order(first.data().size(), second.data().size());
    default:
      return order(first.count(), second.count());
  }
}

int localizedCompare(const PropertyList& first, const PropertyList& second) {
  if (first.isString() && second.isString()) {
    // A NUL follows the text of a value, so that strcoll can read it.
    if (const int ordered = std::strcoll(first.string().data(), second.string().data()); ordered != 0) {
      return ordered;
    }
  }
  return compare(first, second);
}

}  // namespace keldane
