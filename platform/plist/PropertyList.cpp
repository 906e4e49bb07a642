#include "platform/plist/PropertyList.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>

#include "platform/plist/PropertyListBlocks.h"
#include "platform/plist/PropertyListNode.h"

namespace keldane {

static_assert(sizeof(PropertyList) == sizeof(void*),
              "an object is as wide as a pointer where it is handed around raw");

namespace {

using Node = PropertyListNode;

// Frees a node whose last reference is gone, and all nodes that only it kept. It uses a list through the dead
// nodes instead of recursion, so that hostile nesting cannot exhaust the stack.
void freeNodes(const Node* first) noexcept {
  PropertyListBlocks::Reclaimer reclaimer;
  const Node* dead = first;
  first->scalar.nextDead = nullptr;
  while (dead != nullptr) {
    Node* node = const_cast<Node*>(dead);  // no other handle refers to it any more
    dead = node->scalar.nextDead;
    for (std::size_t i = 0; i < node->handleCount(); ++i) {
      const Node* child = PropertyListAccess::takeNode(node->handles()[i]);
      if (child != nullptr && child->dropReference()) {
        child->scalar.nextDead = dead;
        dead = child;
      }
    }
    reclaimer.reclaim(node);
  }
}

// Parses leading blanks, a sign and digits, as the platform's strings do. The rest is ignored. A number out
// of range becomes the nearest limit.
std::int64_t integerFromText(std::string_view text) noexcept {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) {
    ++i;
  }
  const bool negative = i < text.size() && text[i] == '-';
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
    ++i;
  }
  const std::uint64_t limit =
      static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + (negative ? 1U : 0U);
  std::uint64_t magnitude = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    const auto digit = static_cast<std::uint64_t>(text[i] - '0');
    magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
  }
  return static_cast<std::int64_t>(negative ? std::uint64_t{0} - magnitude : magnitude);
}

bool booleanFromText(std::string_view text) noexcept {
  const std::size_t i = text.find_first_not_of(" \t\n\r+-0");
  return i != std::string_view::npos && std::strchr("YyTt123456789", text[i]) != nullptr;
}

template <class Integer>
Integer truncated(double value) noexcept {
  if (std::isnan(value)) {
    return 0;
  }
  // The limits are compared as doubles. The upper one is rounded up to a power of two, which is out of range
  // itself.
  if (value <= static_cast<double>(std::numeric_limits<Integer>::min())) {
    return std::numeric_limits<Integer>::min();
  }
  if (value >= static_cast<double>(std::numeric_limits<Integer>::max())) {
    return std::numeric_limits<Integer>::max();
  }
  return static_cast<Integer>(value);
}

}  // namespace

PropertyListNode* PropertyListNode::allocate(PropertyList::Kind kind, std::size_t count,
                                             std::size_t payload) {
  void* memory = ::operator new(sizeof(PropertyListNode) + payload);
  return new (memory) PropertyListNode(kind, count);
}

PropertyListNode* PropertyListNode::allocateArray(std::size_t count, std::size_t behind) {
  Node* node = allocate(PropertyList::Kind::array, count, count * sizeof(PropertyList) + behind);
  std::uninitialized_value_construct_n(node->handles(), count);
  return node;
}

PropertyListNode* PropertyListNode::allocateDictionary(const PropertyList& keys) {
  const std::size_t count = PropertyListAccess::node(keys)->count;
  Node* node = allocate(PropertyList::Kind::dictionary, count, (1 + count) * sizeof(PropertyList));
  std::uninitialized_value_construct_n(node->handles(), 1 + count);
  node->handles()[0] = keys;
  return node;
}

// --- Ownership ---

void PropertyList::retain() const noexcept {
  if (const Node* node = PropertyListAccess::node(*this)) {
    node->addReference();
  }
}

void PropertyList::release() noexcept {
  const Node* node = PropertyListAccess::takeNode(*this);
  if (node != nullptr && node->dropReference()) {
    freeNodes(node);
  }
}

// --- Making values ---

PropertyList::PropertyList(std::string_view text) {
  Node* node = Node::allocate(Kind::string, text.size(), text.size() + 1);
  char* target = node->bytes();
  std::copy(text.begin(), text.end(), target);
  target[text.size()] = '\0';
  *this = PropertyListAccess::adopt(node);
}

PropertyList::PropertyList(Date date) {
  Node* node = Node::allocate(Kind::date, 0, 0);
  node->scalar.real = date.secondsSinceReference;
  *this = PropertyListAccess::adopt(node);
}

PropertyList PropertyList::boolean(bool value) {
  return PropertyListAccess::inlineNumber(NumberKind::boolean, value ? 1 : 0);
}

PropertyList PropertyList::integer(std::int64_t value) {
  if (PropertyListAccess::fitsInline(value)) {
    return PropertyListAccess::inlineNumber(NumberKind::signedInteger, value);
  }
  Node* node = Node::allocate(Kind::number, 0, 0);
  node->numberKind = NumberKind::signedInteger;
  node->scalar.signedInteger = value;
  return PropertyListAccess::adopt(node);
}

PropertyList PropertyList::unsignedInteger(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(PropertyListAccess::kInlineMaximum)) {
    return PropertyListAccess::inlineNumber(NumberKind::unsignedInteger, static_cast<std::int64_t>(value));
  }
  Node* node = Node::allocate(Kind::number, 0, 0);
  node->numberKind = NumberKind::unsignedInteger;
  node->scalar.unsignedInteger = value;
  return PropertyListAccess::adopt(node);
}

PropertyList PropertyList::real(double value) {
  Node* node = Node::allocate(Kind::number, 0, 0);
  node->numberKind = NumberKind::real;
  node->scalar.real = value;
  return PropertyListAccess::adopt(node);
}

PropertyList PropertyList::data(BytesView bytes) {
  Node* node = Node::allocate(Kind::data, bytes.size(), bytes.size());
  std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(node->bytes()));
  return PropertyListAccess::adopt(node);
}

PropertyList PropertyList::array(Array elements) {
  Node* node = Node::allocate(Kind::array, elements.size(), elements.size() * sizeof(PropertyList));
  std::uninitialized_move(elements.begin(), elements.end(), node->handles());
  return PropertyListAccess::adopt(node);
}

namespace {

/// The positions of the keys in sorted order. Equal keys are in the order in which they were given.
template <class Key>
std::vector<std::uint32_t> orderOf(std::size_t count, const Key& key) {
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0U);
  std::stable_sort(order.begin(), order.end(),
                   [&](std::uint32_t a, std::uint32_t b) { return key(a) < key(b); });
  return order;
}

// Removes all but the first of the entries with the same key.
void dropRepeated(PropertyList::Entries& entries) {
  const auto key = [&](std::size_t position) { return entries[position].first.string(); };
  if (entries.size() <= Node::kLinearLookUp) {
    for (std::size_t i = 1; i < entries.size(); ++i) {
      for (std::size_t k = 0; k < i; ++k) {
        if (key(k) == key(i)) {
          entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i--));
          break;
        }
      }
    }
    return;
  }
  const std::vector<std::uint32_t> order = orderOf(entries.size(), key);
  for (std::size_t i = 1, kept = 0; i < order.size(); ++i) {
    if (key(order[i]) == key(order[kept])) {
      entries[order[i]].second = PropertyList();
    } else {
      kept = i;
    }
  }
  std::erase_if(entries, [](const PropertyList::Entry& entry) { return entry.second.isAbsent(); });
}

}  // namespace

PropertyList PropertyListAccess::makeKeys(PropertyList::Array keys) {
  std::vector<std::uint32_t> order;
  if (keys.size() > Node::kLinearLookUp) {
    order = orderOf(keys.size(), [&](std::size_t position) { return keys[position].string(); });
  }
  Node* node = Node::allocateArray(keys.size(), order.size() * sizeof(std::uint32_t));
  std::move(keys.begin(), keys.end(), node->handles());
  std::copy(order.begin(), order.end(), node->order());
  return adopt(node);
}

bool PropertyListAccess::keysDiffer(const PropertyListNode& keys) noexcept {
  const auto key = [&](std::size_t position) { return keys.handles()[position].string(); };
  for (std::size_t i = 1; i < keys.count; ++i) {
    if (keys.count > Node::kLinearLookUp) {
      if (key(keys.order()[i - 1]) == key(keys.order()[i])) {
        return false;
      }
      continue;
    }
    const Node& name = *node(keys.handles()[i]);
    for (std::size_t k = 0; k < i; ++k) {
      const Node& other = *node(keys.handles()[k]);
      if (name.count == other.count && std::memcmp(name.bytes(), other.bytes(), name.count) == 0) {
        return false;
      }
    }
  }
  return true;
}

PropertyList PropertyList::dictionary(Entries entries) {
  std::erase_if(entries,
                [](const Entry& entry) { return !entry.first.isString() || entry.second.isAbsent(); });
  dropRepeated(entries);
  Array keys;
  keys.reserve(entries.size());
  for (Entry& entry : entries) {
    keys.push_back(std::move(entry.first));
  }
  Node* node = Node::allocateDictionary(PropertyListAccess::makeKeys(std::move(keys)));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    node->values()[i] = std::move(entries[i].second);
  }
  return PropertyListAccess::adopt(node);
}

PropertyList::Keys::Keys(std::initializer_list<std::string_view> names)
    : keys_(PropertyListAccess::makeKeys({names.begin(), names.end()})) {}

PropertyList PropertyList::dictionary(const Keys& keys, std::initializer_list<PropertyList> values) {
  const Node* names = PropertyListAccess::node(keys.keys_);
  if (names == nullptr) {
    return dictionary(Entries());
  }
  if (values.size() == names->count &&
      std::none_of(values.begin(), values.end(),
                   [](const PropertyList& value) { return value.isAbsent(); })) {
    Node* node = Node::allocateDictionary(keys.keys_);
    std::copy(values.begin(), values.end(), node->values());
    return PropertyListAccess::adopt(node);
  }
  Entries entries;
  entries.reserve(names->count);
  for (std::size_t i = 0; i < std::min(values.size(), names->count); ++i) {
    entries.emplace_back(names->handles()[i], values.begin()[i]);
  }
  return dictionary(std::move(entries));
}

// --- Asking values ---

PropertyList::Kind PropertyList::kind() const noexcept {
  if (PropertyListAccess::isInline(*this)) {
    return Kind::number;
  }
  const Node* node = PropertyListAccess::node(*this);
  return node == nullptr ? Kind::absent : node->kind;
}

PropertyList::NumberKind PropertyList::numberKind() const noexcept {
  if (PropertyListAccess::isInline(*this)) {
    return PropertyListAccess::inlineKind(*this);
  }
  return isNumber() ? PropertyListAccess::node(*this)->numberKind : NumberKind::boolean;
}

std::string_view PropertyList::string() const noexcept {
  if (!isString()) {
    return "";
  }
  const Node* node = PropertyListAccess::node(*this);
  return {node->bytes(), node->count};
}

BytesView PropertyList::data() const noexcept {
  if (!isData()) {
    return {};
  }
  const Node* node = PropertyListAccess::node(*this);
  return {reinterpret_cast<const std::uint8_t*>(node->bytes()), node->count};
}

Date PropertyList::date() const noexcept {
  return isDate() ? Date{PropertyListAccess::node(*this)->scalar.real} : Date{};
}

std::int64_t PropertyList::integerBits() const noexcept {
  if (PropertyListAccess::isInline(*this)) {
    return PropertyListAccess::inlineValue(*this);
  }
  if (!isNumber()) {
    return 0;
  }
  const Node* node = PropertyListAccess::node(*this);
  return node->numberKind == NumberKind::real ? truncated<std::int64_t>(node->scalar.real)
                                              : node->scalar.signedInteger;
}

// A real saturates at the type's own limits, while an integer is reduced modulo the width.
template <class Integer>
Integer PropertyList::integerAs() const noexcept {
  if (isNumber() && numberKind() == NumberKind::real) {
    return truncated<Integer>(PropertyListAccess::node(*this)->scalar.real);
  }
  return static_cast<Integer>(integerBits());
}

signed char PropertyList::charValue() const noexcept { return integerAs<signed char>(); }
unsigned char PropertyList::unsignedCharValue() const noexcept { return integerAs<unsigned char>(); }
short PropertyList::shortValue() const noexcept { return integerAs<short>(); }
unsigned short PropertyList::unsignedShortValue() const noexcept { return integerAs<unsigned short>(); }
std::uint32_t PropertyList::unsignedIntValue() const noexcept { return integerAs<std::uint32_t>(); }
long PropertyList::longValue() const noexcept { return integerAs<long>(); }
unsigned long PropertyList::unsignedLongValue() const noexcept { return integerAs<unsigned long>(); }
std::uint64_t PropertyList::unsignedLongLongValue() const noexcept { return integerAs<std::uint64_t>(); }

std::int32_t PropertyList::intValue() const noexcept {
  if (isString()) {
    constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(integerFromText(string()), lowest, highest));
  }
  return integerAs<std::int32_t>();
}

std::int64_t PropertyList::longLongValue() const noexcept {
  return isString() ? integerFromText(string()) : integerAs<std::int64_t>();
}

double PropertyList::doubleValue() const noexcept {
  if (isString()) {
    return PropertyListAccess::realFromText(string());
  }
  if (!isNumber()) {
    return 0;
  }
  switch (numberKind()) {
    case NumberKind::real:
      return PropertyListAccess::node(*this)->scalar.real;
    case NumberKind::unsignedInteger:
      return static_cast<double>(static_cast<std::uint64_t>(integerBits()));
    default:
      return static_cast<double>(integerBits());
  }
}

float PropertyList::floatValue() const noexcept {
  const double value = doubleValue();
  constexpr double highest = std::numeric_limits<float>::max();
  // The conversion of a value beyond the range of float would be undefined; the result is infinity instead.
  if (value > highest) {
    return std::numeric_limits<float>::infinity();
  }
  return value < -highest ? -std::numeric_limits<float>::infinity() : static_cast<float>(value);
}

bool PropertyList::boolValue() const noexcept {
  if (isString()) {
    return booleanFromText(string());
  }
  if (isNumber() && numberKind() == NumberKind::real) {
    return PropertyListAccess::node(*this)->scalar.real != 0;
  }
  return integerBits() != 0;
}

std::size_t PropertyList::count() const noexcept {
  return isArray() || isDictionary() ? PropertyListAccess::node(*this)->count : 0;
}

PropertyList PropertyList::operator[](std::size_t index) const noexcept {
  return isArray() && index < count() ? PropertyListAccess::node(*this)->handles()[index] : PropertyList();
}

PropertyList PropertyList::operator[](std::string_view key) const noexcept {
  if (!isDictionary()) {
    return {};
  }
  const PropertyList* value = PropertyListAccess::node(*this)->find(key);
  return value == nullptr ? PropertyList() : *value;
}

PropertyList PropertyList::LookUp::operator[](std::string_view key) noexcept {
  if (!dictionary_.isDictionary()) {
    return {};
  }
  const Node* node = PropertyListAccess::node(dictionary_);
  const PropertyList* value = node->find(key, next_);
  if (value == nullptr) {
    return {};
  }
  next_ = static_cast<std::size_t>(value - node->values()) + 1;
  return *value;
}

PropertyList::Entry PropertyList::entry(std::size_t index) const noexcept {
  if (!isDictionary() || index >= count()) {
    return {};
  }
  const Node* node = PropertyListAccess::node(*this);
  return {node->keys()->handles()[index], node->values()[index]};
}

const PropertyList* PropertyListNode::find(std::string_view key, std::size_t first) const noexcept {
  const PropertyList* names = keys()->handles();
  const auto isAt = [&](std::size_t position) {
    const PropertyListNode& name = *PropertyListAccess::node(names[position]);
    return std::string_view(name.bytes(), name.count) == key;
  };
  if (first < count && isAt(first)) {
    return &values()[first];
  }
  if (count <= kLinearLookUp) {
    for (std::size_t i = 0; i < count; ++i) {
      if (isAt(i)) {
        return &values()[i];
      }
    }
    return nullptr;
  }
  const std::uint32_t* begin = keys()->order();
  const std::uint32_t* end = begin + count;
  const std::uint32_t* found = std::lower_bound(
      begin, end, key,
      [&](std::uint32_t position, std::string_view wanted) { return names[position].string() < wanted; });
  return found == end || names[*found].string() != key ? nullptr : &values()[*found];
}

}  // namespace keldane
