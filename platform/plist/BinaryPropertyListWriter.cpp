#include "platform/plist/BinaryPropertyListWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory_resource>
#include <span>
#include <utility>
#include <vector>

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

constexpr std::uint64_t kScatter = 0x9E3779B97F4A7C15;

/// What is written once, other than strings and data: equal scalars of one sort (a NaN equals itself here,
/// 0.0 and -0.0 differ), or one container.
struct Identity {
  enum Sort : std::uint32_t { bytes, boolean, integer, large, real, date, container };
  bool operator==(const Identity&) const = default;

  Sort sort = bytes;
  std::uint64_t number = 0;  ///< the value itself, or its address

  explicit Identity(const PropertyList& value) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    if (node == nullptr) {
      setInteger(PropertyListAccess::inlineKind(value), PropertyListAccess::inlineValue(value));
      return;
    }
    switch (node->kind) {
      case PropertyList::Kind::string:
      case PropertyList::Kind::data:
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

// Out of the way of what is written.
[[noreturn, gnu::cold, gnu::noinline]] void fail(const char* sentence) { throw PropertyListError(sentence); }

[[noreturn, gnu::cold, gnu::noinline]] void failForDepth() {
  throw PropertyListError("The containers are nested deeper than " +
                          std::to_string(PropertyListSerialization::kMaximumDepth) + " levels.");
}

/// What is written, in the order of its numbers.
struct Object {
  const PropertyList* value = nullptr;
  /// Of a container that is numbered whole its height; of what is written its offset.
  std::uint64_t place = 0;
};

using Objects = std::pmr::vector<Object>;

/// The numbers that objects have got: a table with a place for each, more than half of them free. A place is
/// small; the object itself is looked at only when its place says that it may be the one.
class Numbers {
 public:
  using Reference = std::uint32_t;

  /// `places` is a power of two. What the memory gives is never given back to it.
  Numbers(std::size_t places, std::pmr::memory_resource& memory) : memory_(memory), places_(free(places)) {}

  /// The number of an object that is equal to `value`, or `next` after it got that one.
  [[gnu::always_inline]] Reference find(const PropertyList& value, Reference next, const Objects& objects) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    if (node != nullptr &&
        (node->kind == PropertyList::Kind::string || node->kind == PropertyList::Kind::data)) {
      return find(hashOf(node->bytes(), node->count), next,
                  [&](Reference other) { return sameBytes(*node, *objects[other].value); });
    }
    const Identity identity(value);
    return find(mixed(identity.number ^ identity.sort, kScatter), next,
                [&](Reference other) { return identity == Identity(*objects[other].value); });
  }

 private:
  struct Place {
    std::uint32_t hash;
    std::uint32_t follower;  ///< the number after the object's; 0: the place is free
  };

  template <class IsSame>
  [[gnu::always_inline]] Reference find(std::uint64_t longHash, Reference next, const IsSame& isSame) {
    const auto hash = static_cast<std::uint32_t>(longHash);
    Place* place = start(hash);
    for (; place->follower != 0; place = after(place)) {
      if (place->hash == hash && isSame(place->follower - 1)) {
        return place->follower - 1;
      }
    }
    *place = {hash, next + 1};
    if (2 * ++used_ == places_.size()) {
      grow();
    }
    return next;
  }

  static bool sameBytes(const PropertyListNode& first, const PropertyList& other) {
    const PropertyListNode* second = PropertyListAccess::node(other);
    return &first == second ||
           (second != nullptr && first.kind == second->kind && first.count == second->count &&
            std::memcmp(first.bytes(), second->bytes(), first.count) == 0);
  }

  std::span<Place> free(std::size_t places) {
    void* memory = memory_.allocate(places * sizeof(Place), alignof(Place));
    std::memset(memory, 0, places * sizeof(Place));
    return {static_cast<Place*>(memory), places};
  }
  Place* start(std::uint32_t hash) const { return places_.data() + (hash & (places_.size() - 1)); }
  Place* after(Place* place) const { return place == &places_.back() ? places_.data() : place + 1; }

  void grow() {
    const std::span<Place> old = std::exchange(places_, free(4 * places_.size()));
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

  std::pmr::memory_resource& memory_;
  std::span<Place> places_;
  std::size_t used_ = 0;
};

class Writer {
  static constexpr std::size_t kFewObjects = 32;
  static constexpr std::size_t kMostExpected = std::size_t{1} << 20;

 public:
  /// Mostly it is one message, or an array of dictionaries with about four objects each that no other has.
  explicit Writer(const PropertyList& value)
      : numbers_(std::bit_ceil(std::clamp<std::size_t>(4 * value.count(), 2 * kFewObjects, kMostExpected)),
                 memory_) {
    objects_.reserve(std::clamp<std::size_t>(4 * value.count(), kFewObjects, kMostExpected));
    members_.reserve(
        std::clamp<std::size_t>(value.count() * (2 + value[0].count()), kFewObjects, kMostExpected));
  }

  Bytes write(const PropertyList& value) {
    number(value, 1);
    referenceSize_ = widthFor(objects_.size() - 1);
    // About what it comes to: a few bytes an object, its text, its members and its place in the table.
    room(textSize_ + objects_.size() * 8 + (members_.size() + keyCount_) * referenceSize_);
    put(kBinaryPropertyListMagic.data(), kBinaryPropertyListMagic.size());
    for (Object& object : objects_) {
      object.place = size();
      put(*object.value);
    }
    const std::uint64_t table = size();
    const std::size_t offsetSize = widthFor(table);
    room(objects_.size() * offsetSize + 32);
    for (const Object& object : objects_) {
      putBigEndian(object.place, offsetSize);
    }
    putBigEndian(0, 6);
    putBigEndian(offsetSize, 1);
    putBigEndian(referenceSize_, 1);
    putBigEndian(objects_.size(), 8);
    putBigEndian(0, 8);
    putBigEndian(table, 8);
    bytes_.resize(size());
    return std::move(bytes_);
  }

 private:
  using Reference = Numbers::Reference;

  struct Numbered {
    Reference reference;
    int height;
  };

  /// Numbers an object and what it holds, each container before its members and a dictionary's keys before
  /// its values.
  Numbered number(const PropertyList& value, int depth) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    return node != nullptr &&
                   (node->kind == PropertyList::Kind::array || node->kind == PropertyList::Kind::dictionary)
               ? numberContainer(value, *node, depth)
               : Numbered{numberScalar(value), 0};
  }

  Reference numberScalar(const PropertyList& value) {
    if (value.isAbsent()) {
      fail("A container holds no value where one belongs.");
    }
    const Reference next = nextReference();
    const Reference reference = numbers_.find(value, next, objects_);
    if (reference == next) {
      objects_.emplace_back().value = &value;
      textSize_ += PropertyListAccess::isInline(value) ? 0 : PropertyListAccess::node(value)->count;
    }
    return reference;
  }

  Numbered numberContainer(const PropertyList& value, const PropertyListNode& container, int depth) {
    const Reference next = nextReference();
    // One that only one other refers to is met once. One that was met before may be reached on a deeper path
    // now.
    if (container.isShared()) {
      const Reference reference = numbers_.find(value, next, objects_);
      if (reference != next) {
        const int height = static_cast<int>(objects_[reference].place);
        checkDepth(depth + height - 1);
        return {reference, height};
      }
    }
    objects_.emplace_back().value = &value;
    checkDepth(depth);
    const int height = 1 + numberMembers(container, depth + 1);
    objects_[next].place = static_cast<std::uint64_t>(height);
    return {next, height};
  }

  Reference nextReference() const {
    if (objects_.size() >= UINT32_MAX) {
      fail("There are 4294967295 objects.");
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
      members_.data()[first + i] = member.reference;
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
    const std::size_t first = keys_.size();
    if (first + keys.count > UINT32_MAX) {
      fail("There are more than 4294967295 keys.");
    }
    keys_.resize(first + keys.count);
    for (std::size_t i = 0; i < keys.count; ++i) {
      keys_.data()[first + i] = numberScalar(keys.handles()[i]);
    }
    if (keys.isShared()) {
      knownKeys_[nextKnownKeys_++ % knownKeys_.size()] = {&keys, static_cast<Reference>(first)};
    }
    return static_cast<Reference>(first);
  }

  static void checkDepth(int depth) {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      failForDepth();
    }
  }

  std::size_t size() const { return static_cast<std::size_t>(next_ - bytes_.data()); }

  /// Makes sure that `count` bytes, the longest scalar and the few that a number is longer than its width can
  /// be put.
  void room(std::size_t count) {
    if (count + kSlack > static_cast<std::size_t>(bytes_.data() + bytes_.size() - next_)) {
      grow(count + kSlack);
    }
  }

  [[gnu::noinline]] void grow(std::size_t count) {
    const std::size_t done = size();
    bytes_.resize(std::max({done + count, 2 * bytes_.size(), std::size_t{512}}));
    next_ = bytes_.data() + done;
  }

  // Into the room that was made:

  void putByte(std::size_t byte) { *next_++ = static_cast<std::uint8_t>(byte); }

  void putBigEndian(std::uint64_t value, std::size_t width) {
    value <<= 64 - 8 * width;
    if constexpr (std::endian::native == std::endian::little) {
      value = __builtin_bswap64(value);
    }
    std::memcpy(next_, &value, sizeof(value));
    next_ += width;
  }

  void put(const void* bytes, std::size_t count) {
    next_ = std::copy_n(static_cast<const std::uint8_t*>(bytes), count, next_);
  }

  void putUnsigned(std::uint64_t value) {
    const std::size_t width = widthFor(value);
    putByte(0x10U | static_cast<unsigned>(std::countr_zero(width)));
    putBigEndian(value, width);
  }

  void putMarker(std::size_t kind, std::size_t count) {
    putByte(kind << 4 | std::min<std::size_t>(count, 0x0F));
    if (count >= 0x0F) {
      putUnsigned(count);
    }
  }

  void put(const PropertyList& value) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    room(node == nullptr ? 0 : node->count * referenceSize_);
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
        put(node->bytes(), node->count);
        return;
      case PropertyList::Kind::array:
        putMarker(0xA, node->count);
        putMembers(node->count);
        return;
      case PropertyList::Kind::dictionary:
        putMarker(0xD, node->count);
        putReferences(keys_.data() + members_[nextMember_++], node->count);
        room(node->count * referenceSize_);
        putMembers(node->count);
        return;
      case PropertyList::Kind::absent:
        return;  // refused while numbering
    }
  }

  void putString(std::string_view text) {
    if (isAscii(text)) {
      putMarker(0x5, text.size());
      put(text.data(), text.size());
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

  /// Of the next container.
  void putMembers(std::size_t count) {
    putReferences(members_.data() + nextMember_, count);
    nextMember_ += count;
  }

  void putReferences(const Reference* references, std::size_t count) {
    if (referenceSize_ == 1) {
      std::transform(references, references + count, next_,
                     [](Reference reference) { return static_cast<std::uint8_t>(reference); });
      next_ += count;
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      putBigEndian(references[i], referenceSize_);
    }
  }

  static constexpr std::size_t kSlack = 32;

  struct KnownKeys {
    const PropertyListNode* keys = nullptr;
    Reference first = 0;  ///< in keys_
  };

  // What a message of the usual size needs while it is written; more comes from the heap.
  std::array<std::byte, 2048> few_;
  std::pmr::monotonic_buffer_resource memory_{few_.data(), few_.size()};
  Numbers numbers_;
  Objects objects_{&memory_};
  std::size_t textSize_ = 0;
  std::size_t keyCount_ = 0;
  std::pmr::vector<Reference> keys_{&memory_};
  std::pmr::vector<Reference> members_{&memory_};
  std::size_t nextMember_ = 0;
  std::array<KnownKeys, 4> knownKeys_;
  std::size_t nextKnownKeys_ = 0;
  std::size_t referenceSize_ = 1;
  Bytes bytes_;
  std::uint8_t* next_ = nullptr;  // in bytes_
};

}  // namespace

Bytes writeBinaryPropertyList(const PropertyList& value) { return Writer(value).write(value); }

}  // namespace keldane
