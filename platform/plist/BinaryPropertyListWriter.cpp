#include "platform/plist/BinaryPropertyListWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <unordered_map>

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

__extension__ using Wide = unsigned __int128;

std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

/// Bytes as a number. Where this process happens to lie in memory takes part, so that nobody can prepare
/// names that come to the same one.
std::uint64_t hashOf(const char* bytes, std::size_t size) {
  static const char anchor = 0;
  constexpr std::uint64_t kFirst = 0x9E3779B97F4A7C15;
  constexpr std::uint64_t kSecond = 0xD6E8FEB86659FD93;
  const auto word = [](const char* at, std::size_t count) {
    std::uint64_t value = 0;
    std::memcpy(&value, at, count);
    return value;
  };
  std::uint64_t hash = (reinterpret_cast<std::uintptr_t>(&anchor) * kSecond) ^ size;
  for (; size > 8; bytes += 8, size -= 8) {
    hash = mixed(hash ^ word(bytes, 8), kFirst);
  }
  const std::uint64_t tail = size == 8   ? word(bytes, 8)
                             : size >= 4 ? word(bytes, 4) << 32 | word(bytes + size - 4, 4)
                             : size > 0  ? std::uint64_t{static_cast<std::uint8_t>(bytes[0])} << 16 |
                                              std::uint64_t{static_cast<std::uint8_t>(bytes[size / 2])} << 8 |
                                              static_cast<std::uint8_t>(bytes[size - 1])
                                        : 0;
  return mixed(hash ^ tail, kSecond);
}

/// What is written once: equal scalars of one sort (a NaN equals itself here, 0.0 and -0.0 differ), or one
/// container.
struct Identity {
  enum Sort : std::uint32_t { none, text, boolean, integer, large, real, date, data, container };
  bool operator==(const Identity&) const = default;

  Sort sort = none;
  std::uint64_t number = 0;  ///< the value itself, a hash of its bytes or its address

  explicit Identity(const PropertyList& value) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    if (node == nullptr) {
      setInteger(PropertyListAccess::inlineKind(value), PropertyListAccess::inlineValue(value));
      return;
    }
    switch (node->kind) {
      case PropertyList::Kind::string:
        sort = text;
        number = hashOf(node->bytes(), node->count);
        return;
      case PropertyList::Kind::number:
        if (node->numberKind != PropertyList::NumberKind::real) {
          setInteger(node->numberKind, node->scalar.signedInteger);
          return;
        }
        sort = real;
        number = std::bit_cast<std::uint64_t>(node->scalar.real);
        return;
      case PropertyList::Kind::date:
        sort = date;
        number = std::bit_cast<std::uint64_t>(node->scalar.real);
        return;
      case PropertyList::Kind::data:
        sort = data;
        number = hashOf(node->bytes(), node->count);
        return;
      default:
        sort = container;
        number = PropertyListAccess::bits(value);
        return;
    }
  }

  void setInteger(PropertyList::NumberKind kind, std::int64_t value) {
    sort = kind == PropertyList::NumberKind::boolean                        ? boolean
           : kind == PropertyList::NumberKind::unsignedInteger && value < 0 ? large
                                                                            : integer;
    number = static_cast<std::uint64_t>(value);
  }
};

/// The numbers that objects have got: a table with a place for each, more than half of them free. A place is
/// small; the object itself is looked at only when its place says that it may be the one.
class Numbers {
 public:
  using Reference = std::uint32_t;

  /// `places` is a power of two.
  explicit Numbers(std::size_t places) : places_(places) {}

  /// The number of an object that is equal to `value`, or `next` after it got that one.
  Reference find(const PropertyList& value, Reference next, const std::vector<const PropertyList*>& objects) {
    if (2 * (used_ + 1) > places_.size()) {
      grow();
    }
    const Identity identity(value);
    const auto hash = static_cast<std::uint32_t>(mixed(identity.number ^ identity.sort, 0x9E3779B97F4A7C15));
    Place* place = start(hash);
    while (place->follower != 0) {
      const Reference reference = place->follower - 1;
      if (place->hash == hash && isSame(identity, value, *objects[reference])) {
        return reference;
      }
      place = after(place);
    }
    *place = {hash, next + 1};
    ++used_;
    return next;
  }

 private:
  struct Place {
    std::uint32_t hash = 0;
    std::uint32_t follower = 0;  ///< the number after the object's; 0: the place is free
  };

  static bool isSame(const Identity& identity, const PropertyList& value, const PropertyList& other) {
    if (identity.sort != Identity::text && identity.sort != Identity::data) {
      const PropertyListNode* node = PropertyListAccess::node(other);
      const bool isBytes = node != nullptr && (node->kind == PropertyList::Kind::string ||
                                               node->kind == PropertyList::Kind::data);
      return !isBytes && identity == Identity(other);
    }
    const PropertyListNode* first = PropertyListAccess::node(value);
    const PropertyListNode* second = PropertyListAccess::node(other);
    return first == second ||
           (second != nullptr && first->kind == second->kind && first->count == second->count &&
            std::memcmp(first->bytes(), second->bytes(), first->count) == 0);
  }

  Place* start(std::uint32_t hash) { return &places_[hash & (places_.size() - 1)]; }
  Place* after(Place* place) { return place == &places_.back() ? places_.data() : place + 1; }

  void grow() {
    std::vector<Place> old(4 * places_.size());
    old.swap(places_);
    for (const Place& moved : old) {
      if (moved.follower != 0) {
        Place* place = start(moved.hash);
        while (place->follower != 0) {
          place = after(place);
        }
        *place = moved;
      }
    }
  }

  std::vector<Place> places_;
  std::size_t used_ = 0;
};

class Writer {
  static constexpr std::size_t kFewObjects = 32;
  static constexpr std::size_t kMostExpected = std::size_t{1} << 20;

 public:
  /// Mostly it is one message, or an array of dictionaries with about four objects each that no other has.
  explicit Writer(const PropertyList& value)
      : numbers_(std::bit_ceil(std::clamp<std::size_t>(4 * value.count(), 64, kMostExpected))) {}

  Bytes write(const PropertyList& value) {
    objects_.reserve(std::clamp<std::size_t>(4 * value.count(), kFewObjects, kMostExpected));
    members_.reserve(
        std::clamp<std::size_t>(value.count() * (2 + value[0].count()), kFewObjects, kMostExpected));
    number(value, 1);
    referenceSize_ = widthFor(objects_.size() - 1);
    // About what it comes to: a few bytes an object, its text, its members and its place in the table.
    room(textSize_ + objects_.size() * 8 + (members_.size() + keyCount_) * referenceSize_);
    std::memcpy(bytes_.data(), kBinaryPropertyListMagic.data(), kBinaryPropertyListMagic.size());
    size_ = kBinaryPropertyListMagic.size();
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const PropertyList* object : objects_) {
      offsets.push_back(size_);
      put(*object);
    }
    const std::uint64_t table = size_;
    const std::size_t offsetSize = widthFor(table);
    room(offsets.size() * offsetSize + 32);
    for (const std::uint64_t offset : offsets) {
      putBigEndian(offset, offsetSize);
    }
    putBigEndian(0, 6);
    putBigEndian(offsetSize, 1);
    putBigEndian(referenceSize_, 1);
    putBigEndian(objects_.size(), 8);
    putBigEndian(0, 8);
    putBigEndian(table, 8);
    bytes_.resize(size_);
    return std::move(bytes_);
  }

 private:
  using Reference = Numbers::Reference;

  struct Numbered {
    Reference reference;
    int height;
  };

  /// Numbers an object and what it holds, each container before its members and a dictionary's keys before
  /// its values. The height of a container that was met before may be reached on a deeper path now.
  Numbered number(const PropertyList& value, int depth) {
    if (value.isAbsent()) {
      throw PropertyListError("A container holds no value where one belongs.");
    }
    const PropertyListNode* container = PropertyListAccess::node(value);
    if (container != nullptr && container->kind != PropertyList::Kind::array &&
        container->kind != PropertyList::Kind::dictionary) {
      container = nullptr;
    }
    const Reference next = nextReference();
    // A container that only one other refers to is met once.
    if (container == nullptr || container->isShared()) {
      const Reference reference = numbers_.find(value, next, objects_);
      if (reference != next) {
        const auto known = container == nullptr ? heights_.end() : heights_.find(reference);
        const int height = known == heights_.end() ? 0 : known->second;
        checkDepth(depth + height - 1);
        return {reference, height};
      }
    }
    objects_.push_back(&value);
    if (container == nullptr) {
      textSize_ += PropertyListAccess::isInline(value) ? 0 : PropertyListAccess::node(value)->count;
      return {next, 0};
    }
    checkDepth(depth);
    const int height = 1 + numberMembers(*container, depth + 1);
    if (container->isShared()) {
      heights_[next] = height;
    }
    return {next, height};
  }

  Reference nextReference() const {
    if (objects_.size() >= UINT32_MAX) {
      throw PropertyListError("There are 4294967295 objects.");
    }
    return static_cast<Reference>(objects_.size());
  }

  /// The height of the highest member. The references of the members stand in `members_` in the order in
  /// which the containers are written; before those of a dictionary's values, where those of its keys stand.
  int numberMembers(const PropertyListNode& container, int depth) {
    if (container.kind == PropertyList::Kind::dictionary) {
      const Reference keys = numberedKeys(*container.keys());
      members_.push_back(keys);
      keyCount_ += container.count;
    }
    const std::size_t first = members_.size();
    members_.resize(first + container.count);
    int height = 0;
    for (std::size_t i = 0; i < container.count; ++i) {
      const Numbered member = number(container.members()[i], depth);
      members_[first + i] = member.reference;
      height = std::max(height, member.height);
    }
    return height;
  }

  /// Where in `keys_` the references of the keys stand.
  Reference numberedKeys(const PropertyListNode& keys) {
    for (const KnownKeys& known : knownKeys_) {
      if (known.keys == &keys) {
        return known.first;
      }
    }
    const auto first = static_cast<Reference>(keys_.size());
    if (keys_.size() + keys.count > UINT32_MAX) {
      throw PropertyListError("There are more than 4294967295 keys.");
    }
    for (std::size_t i = 0; i < keys.count; ++i) {
      keys_.push_back(number(keys.handles()[i], 0).reference);
    }
    if (keys.isShared()) {
      knownKeys_[nextKnownKeys_++ % knownKeys_.size()] = {&keys, first};
    }
    return first;
  }

  static void checkDepth(int depth) {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      throw PropertyListError("The containers are nested deeper than " +
                              std::to_string(PropertyListSerialization::kMaximumDepth) + " levels.");
    }
  }

  /// Makes sure that `count` bytes and the few that a number is longer than its width can be put.
  void room(std::size_t count) {
    const std::size_t needed = size_ + count + kSlack;
    if (needed > bytes_.size()) {
      bytes_.resize(std::max({needed, 2 * bytes_.size(), std::size_t{512}}));
    }
  }

  /// Into the room that was made.
  void putBigEndian(std::uint64_t value, std::size_t width) {
    value <<= 64 - 8 * width;
    if constexpr (std::endian::native == std::endian::little) {
      value = __builtin_bswap64(value);
    }
    std::memcpy(&bytes_[size_], &value, sizeof(value));
    size_ += width;
  }

  void putBytes(const void* bytes, std::size_t count) {
    if (count > 0) {
      room(count);
      std::memcpy(&bytes_[size_], bytes, count);
      size_ += count;
    }
  }

  void putByte(std::uint8_t byte) { bytes_[size_++] = byte; }

  void putUnsigned(std::uint64_t value) {
    const std::size_t width = widthFor(value);
    putByte(static_cast<std::uint8_t>(0x10 | std::countr_zero(width)));
    putBigEndian(value, width);
  }

  void putMarker(std::uint8_t kind, std::size_t count) {
    putByte(static_cast<std::uint8_t>(std::size_t{kind} << 4 | std::min<std::size_t>(count, 0x0F)));
    if (count >= 0x0F) {
      putUnsigned(count);
    }
  }

  void put(const PropertyList& value) {
    room(kLongestScalar);
    const PropertyListNode* node = PropertyListAccess::node(value);
    if (node == nullptr) {
      putInteger(PropertyListAccess::inlineKind(value), PropertyListAccess::inlineValue(value));
      return;
    }
    switch (node->kind) {
      case PropertyList::Kind::string:
        putString({node->bytes(), node->count});
        return;
      case PropertyList::Kind::number:
        if (node->numberKind != PropertyList::NumberKind::real) {
          putInteger(node->numberKind, node->scalar.signedInteger);
          return;
        }
        putByte(0x23);
        putBigEndian(std::bit_cast<std::uint64_t>(node->scalar.real), 8);
        return;
      case PropertyList::Kind::date:
        putByte(0x33);
        putBigEndian(std::bit_cast<std::uint64_t>(node->scalar.real), 8);
        return;
      case PropertyList::Kind::data:
        putMarker(0x4, node->count);
        putBytes(node->bytes(), node->count);
        return;
      case PropertyList::Kind::array:
        putMarker(0xA, node->count);
        putReferences(members_, nextMember_, node->count);
        nextMember_ += node->count;
        return;
      case PropertyList::Kind::dictionary:
        putMarker(0xD, node->count);
        putReferences(keys_, members_[nextMember_++], node->count);
        putReferences(members_, nextMember_, node->count);
        nextMember_ += node->count;
        return;
      case PropertyList::Kind::absent:
        return;  // refused while numbering
    }
  }

  void putString(std::string_view text) {
    if (isAscii(text)) {
      putMarker(0x5, text.size());
      putBytes(text.data(), text.size());
      return;
    }
    const std::u16string units = utf16FromUtf8(text);
    putMarker(0x6, units.size());
    room(2 * units.size());
    for (const char16_t unit : units) {
      putBigEndian(unit, 2);
    }
  }

  void putInteger(PropertyList::NumberKind kind, std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    if (kind == PropertyList::NumberKind::boolean) {
      putByte(value != 0 ? 0x09 : 0x08);
    } else if (kind == PropertyList::NumberKind::unsignedInteger && value < 0) {  // above the signed range
      putByte(0x14);
      putBigEndian(0, 8);
      putBigEndian(bits, 8);
    } else {
      putUnsigned(bits);  // a negative one fills 8 bytes by itself
    }
  }

  void putReferences(const std::vector<Reference>& references, std::size_t first, std::size_t count) {
    room(count * referenceSize_);
    for (std::size_t i = first; i < first + count; ++i) {
      putBigEndian(references[i], referenceSize_);
    }
  }

  static constexpr std::size_t kLongestScalar = 17;
  static constexpr std::size_t kSlack = 8;

  struct KnownKeys {
    const PropertyListNode* keys = nullptr;
    Reference first = 0;  ///< in keys_
  };

  Numbers numbers_;
  std::vector<const PropertyList*> objects_;
  std::size_t textSize_ = 0;
  std::size_t keyCount_ = 0;
  std::vector<Reference> keys_;
  std::vector<Reference> members_;
  std::size_t nextMember_ = 0;
  std::unordered_map<Reference, int> heights_;  // of containers that several refer to
  std::array<KnownKeys, 4> knownKeys_;
  std::size_t nextKnownKeys_ = 0;
  std::size_t referenceSize_ = 1;
  Bytes bytes_;
  std::size_t size_ = 0;
};

}  // namespace

Bytes writeBinaryPropertyList(const PropertyList& value) { return Writer(value).write(value); }

}  // namespace keldane
