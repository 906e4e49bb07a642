#include "platform/plist/BinaryPropertyListWriter.h"

#include <algorithm>
#include <bit>
#include <unordered_map>
#include <variant>

#include "platform/plist/BinaryPropertyListReader.h"
#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListNode.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/plist/Unicode.h"

namespace keldane {

namespace {

std::size_t widthFor(std::uint64_t largest) {
  return largest < 0x100 ? 1 : largest < 0x10000 ? 2 : largest < 0x100000000 ? 4 : 8;
}

std::size_t hashOf(const PropertyList& value) {
  const std::size_t kind = static_cast<std::size_t>(value.kind());
  switch (value.kind()) {
    case PropertyList::Kind::string:
      return std::hash<std::string_view>()(value.string()) ^ kind;
    case PropertyList::Kind::number:
      if (value.numberKind() == PropertyList::NumberKind::real) {
        return std::hash<double>()(value.doubleValue()) ^ kind;
      }
      return std::hash<std::int64_t>()(value.longLongValue()) ^
             (kind + (value.numberKind() == PropertyList::NumberKind::boolean ? 1 : 0));
    case PropertyList::Kind::date:
      return std::hash<double>()(value.date().secondsSinceReference) ^ kind;
    case PropertyList::Kind::data: {
      const BytesView bytes = value.data();
      return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()}) ^
             kind;
    }
    default:
      return std::hash<const void*>()(PropertyListAccess::node(value));
  }
}

/// What counts as one object: equal scalars (a NaN equals itself here), the same container.
struct OneObject {
  bool operator()(const PropertyList* a, const PropertyList* b) const {
    if (a->isArray() || a->isDictionary() || b->isArray() || b->isDictionary()) {
      return PropertyListAccess::node(*a) == PropertyListAccess::node(*b);
    }
    const auto bits = [](const PropertyList& v) {
      return std::bit_cast<std::uint64_t>(v.isDate() ? v.date().secondsSinceReference : v.doubleValue());
    };
    const bool floating = a->isDate() || (a->isNumber() && a->numberKind() == PropertyList::NumberKind::real);
    if (floating && a->kind() == b->kind() && a->numberKind() == b->numberKind()) {
      return bits(*a) == bits(*b);  // tells 0.0 from -0.0, which are equal but not the same
    }
    return a->identical(*b);
  }
};
struct HashObject {
  std::size_t operator()(const PropertyList* value) const { return hashOf(*value); }
};

class Writer {
 public:
  Bytes write(const PropertyList& value) {
    number(value, 1);
    referenceSize_ = widthFor(objects_.size() - 1);
    bytes_.assign(kBinaryPropertyListMagic.begin(), kBinaryPropertyListMagic.end());
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const PropertyList* object : objects_) {
      offsets.push_back(bytes_.size());
      put(*object);
    }
    const std::uint64_t table = bytes_.size();
    const std::size_t offsetSize = widthFor(table);
    for (const std::uint64_t offset : offsets) {
      putBigEndian(offset, offsetSize);
    }
    bytes_.insert(bytes_.end(), 6, 0);
    bytes_.push_back(static_cast<std::uint8_t>(offsetSize));
    bytes_.push_back(static_cast<std::uint8_t>(referenceSize_));
    putBigEndian(objects_.size(), 8);
    putBigEndian(0, 8);
    putBigEndian(table, 8);
    return std::move(bytes_);
  }

 private:
  /// Numbers an object and what it holds, each container before its members and a dictionary's keys before
  /// its values. The height of a container that was met before may be reached on a deeper path now.
  int number(const PropertyList& value, int depth) {
    if (value.isAbsent()) {
      throw PropertyListError("A container holds no value where one belongs.");
    }
    const auto [place, isNew] = numbers_.try_emplace(&value, Numbered{objects_.size(), 0});
    Numbered& numbered = place->second;  // stays where it is while the map grows
    if (!isNew) {
      checkDepth(depth + numbered.height - 1);
      return numbered.height;
    }
    objects_.push_back(&value);
    if (!value.isArray() && !value.isDictionary()) {
      return 0;
    }
    checkDepth(depth);
    int height = 0;
    const PropertyListNode* node = PropertyListAccess::node(value);
    const std::size_t step = value.isDictionary() ? 2 : 1;
    for (std::size_t first = 0; first < step; ++first) {
      for (std::size_t i = first; i < node->handleCount(); i += step) {
        height = std::max(height, number(node->handles()[i], depth + 1));
      }
    }
    numbered.height = height + 1;
    return numbered.height;
  }

  static void checkDepth(int depth) {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      throw PropertyListError("The containers are nested deeper than " +
                              std::to_string(PropertyListSerialization::kMaximumDepth) + " levels.");
    }
  }

  void putBigEndian(std::uint64_t value, std::size_t width) {
    for (std::size_t i = width; i > 0; --i) {
      bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * (i - 1))));
    }
  }

  void putUnsigned(std::uint64_t value) {
    const std::size_t width = widthFor(value);
    bytes_.push_back(static_cast<std::uint8_t>(0x10 | std::countr_zero(width)));
    putBigEndian(value, width);
  }

  void putMarker(std::uint8_t kind, std::size_t count) {
    bytes_.push_back(static_cast<std::uint8_t>(std::size_t{kind} << 4 | std::min<std::size_t>(count, 0x0F)));
    if (count >= 0x0F) {
      putUnsigned(count);
    }
  }

  void put(const PropertyList& value) {
    switch (value.kind()) {
      case PropertyList::Kind::string:
        putString(value.string());
        return;
      case PropertyList::Kind::number:
        putNumber(value);
        return;
      case PropertyList::Kind::date:
        bytes_.push_back(0x33);
        putBigEndian(std::bit_cast<std::uint64_t>(value.date().secondsSinceReference), 8);
        return;
      case PropertyList::Kind::data:
        putMarker(0x4, value.data().size());
        bytes_.insert(bytes_.end(), value.data().begin(), value.data().end());
        return;
      case PropertyList::Kind::array:
        putMarker(0xA, value.count());
        putMembers(value, 0, 1);
        return;
      case PropertyList::Kind::dictionary:
        putMarker(0xD, value.count());
        putMembers(value, 0, 2);
        putMembers(value, 1, 2);
        return;
      case PropertyList::Kind::absent:
        return;  // refused while numbering
    }
  }

  void putString(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<std::uint8_t>(c) < 128; })) {
      putMarker(0x5, text.size());
      bytes_.insert(bytes_.end(), text.begin(), text.end());
      return;
    }
    const std::u16string units = utf16FromUtf8(text);
    putMarker(0x6, units.size());
    for (const char16_t unit : units) {
      putBigEndian(unit, 2);
    }
  }

  void putNumber(const PropertyList& value) {
    switch (value.numberKind()) {
      case PropertyList::NumberKind::boolean:
        bytes_.push_back(value.boolValue() ? 0x09 : 0x08);
        return;
      case PropertyList::NumberKind::real:
        bytes_.push_back(0x23);
        putBigEndian(std::bit_cast<std::uint64_t>(value.doubleValue()), 8);
        return;
      case PropertyList::NumberKind::unsignedInteger:
        if (value.longLongValue() < 0) {
          bytes_.push_back(0x14);
          putBigEndian(0, 8);
          putBigEndian(value.unsignedLongLongValue(), 8);
          return;
        }
        break;
      case PropertyList::NumberKind::signedInteger:
        break;
    }
    putUnsigned(value.unsignedLongLongValue());  // a negative one fills 8 bytes by itself
  }

  void putMembers(const PropertyList& container, std::size_t first, std::size_t step) {
    const PropertyListNode* node = PropertyListAccess::node(container);
    for (std::size_t i = first; i < node->handleCount(); i += step) {
      putBigEndian(numbers_.at(&node->handles()[i]).reference, referenceSize_);
    }
  }

  struct Numbered {
    std::size_t reference;
    int height;
  };
  std::unordered_map<const PropertyList*, Numbered, HashObject, OneObject> numbers_;
  std::vector<const PropertyList*> objects_;
  std::size_t referenceSize_ = 1;
  Bytes bytes_;
};

}  // namespace

Bytes writeBinaryPropertyList(const PropertyList& value) { return Writer().write(value); }

}  // namespace keldane
