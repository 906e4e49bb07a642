// Comparison of two property-list values.
#include <algorithm>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/plist/PropertyListNode.h"

namespace keldane {

namespace {

using Node = PropertyListNode;

bool sameNumbers(const PropertyList& a, const PropertyList& b) noexcept {
  using NumberKind = PropertyList::NumberKind;
  const bool aReal = a.numberKind() == NumberKind::real;
  const bool bReal = b.numberKind() == NumberKind::real;
  if (aReal || bReal) {
    return a.doubleValue() == b.doubleValue();
  }
  // The bits of an unsigned number above the signed range look negative.
  const auto aboveSigned = [](const PropertyList& number) {
    return number.numberKind() == NumberKind::unsignedInteger && number.longLongValue() < 0;
  };
  return a.longLongValue() == b.longLongValue() && aboveSigned(a) == aboveSigned(b);
}

bool sameSort(const PropertyList& a, const PropertyList& b) noexcept {
  using NumberKind = PropertyList::NumberKind;
  const auto sort = [](const PropertyList& number) {
    return number.numberKind() == NumberKind::unsignedInteger ? NumberKind::signedInteger
                                                              : number.numberKind();
  };
  return sort(a) == sort(b);
}

bool sameScalars(const PropertyList& a, const PropertyList& b, bool strict) noexcept {
  switch (a.kind()) {
    case PropertyList::Kind::string:
      return a.string() == b.string();
    case PropertyList::Kind::number:
      return sameNumbers(a, b) && (!strict || sameSort(a, b));
    case PropertyList::Kind::date:
      return a.date() == b.date();
    case PropertyList::Kind::data:
      return std::equal(a.data().begin(), a.data().end(), b.data().begin(), b.data().end());
    default:
      return true;
  }
}

using NodePair = std::pair<const Node*, const Node*>;

struct HashNodePair {
  std::size_t operator()(const NodePair& pair) const noexcept {
    return std::hash<const void*>()(pair.first) * 31 + std::hash<const void*>()(pair.second);
  }
};

// Compares without recursion. Each pair of containers that are shared within a value is compared once. So
// even a value whose text form would be huge is compared in time proportional to its stored size.
bool sameValues(const PropertyList& first, const PropertyList& second, bool strict) {
  std::vector<std::pair<const PropertyList*, const PropertyList*>> work = {{&first, &second}};
  std::unordered_set<NodePair, HashNodePair> seen;
  while (!work.empty()) {
    const auto [a, b] = work.back();
    work.pop_back();
    const Node* aNode = PropertyListAccess::node(*a);
    const Node* bNode = PropertyListAccess::node(*b);
    if (aNode == bNode && aNode != nullptr) {
      continue;
    }
    if (a->kind() != b->kind()) {
      return false;
    }
    if (aNode == nullptr || bNode == nullptr || (!a->isArray() && !a->isDictionary())) {
      if (!sameScalars(*a, *b, strict)) {
        return false;
      }
      continue;
    }
    if (aNode->count != bNode->count) {
      return false;
    }
    if ((aNode->isShared() || bNode->isShared()) && !seen.emplace(aNode, bNode).second) {
      continue;
    }
    // In dictionaries that share their keys, the values at the same position belong to the same key.
    const bool byPlace = a->isArray() || aNode->keys() == bNode->keys();
    for (std::size_t i = 0; i < aNode->count; ++i) {
      const PropertyList* other =
          byPlace ? &bNode->members()[i] : bNode->find(aNode->keys()->handles()[i].string());
      if (other == nullptr) {
        return false;
      }
      work.emplace_back(&aNode->members()[i], other);
    }
  }
  return true;
}

}  // namespace

bool PropertyList::operator==(const PropertyList& other) const { return sameValues(*this, other, false); }

bool PropertyList::identical(const PropertyList& other) const { return sameValues(*this, other, true); }

}  // namespace keldane
