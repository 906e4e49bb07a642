#include "platform/plist/BinaryPropertyListWriter.h"

#include <algorithm>
#include <array>
#include <atomic>
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

/// What is worked out of bytes once and kept with them.
struct Marks {
  static constexpr std::uint32_t kKnown = 1, kAscii = 2;

  std::uint32_t flags;
  std::uint32_t hash;
};

/// Where this process happens to lie in memory takes part in the hash, so that nobody can prepare names that
/// come to the same one.
Marks marksOf(const char* bytes, std::size_t size) {
  static const char anchor = 0;
  constexpr std::uint64_t kFirst = 0x9E3779B97F4A7C15;
  constexpr std::uint64_t kSecond = 0xD6E8FEB86659FD93;
  const auto word = [](const char* at, std::size_t count) {
    std::uint64_t value = 0;
    std::memcpy(&value, at, count);
    return value;
  };
  std::uint64_t hash = (reinterpret_cast<std::uintptr_t>(&anchor) * kSecond) ^ size;
  std::uint64_t all = 0;
  for (; size > 8; bytes += 8, size -= 8) {
    const std::uint64_t next = word(bytes, 8);
    all |= next;
    hash = mixed(hash ^ next, kFirst);
  }
  const std::uint64_t tail = size == 8   ? word(bytes, 8)
                             : size >= 4 ? word(bytes, 4) << 32 | word(bytes + size - 4, 4)
                             : size > 0  ? std::uint64_t{static_cast<std::uint8_t>(bytes[0])} << 16 |
                                              std::uint64_t{static_cast<std::uint8_t>(bytes[size / 2])} << 8 |
                                              static_cast<std::uint8_t>(bytes[size - 1])
                                        : 0;
  const bool isAscii = ((all | tail) & 0x8080808080808080U) == 0;
  return {Marks::kKnown | (isAscii ? Marks::kAscii : 0),
          static_cast<std::uint32_t>(mixed(hash ^ tail, kSecond))};
}

/// Of text or data, which any number of threads may be writing.
Marks marksOf(const PropertyListNode& node) {
  const std::atomic_ref<std::uint64_t> kept(const_cast<PropertyListNode&>(node).scalar.marks);
  auto marks = std::bit_cast<Marks>(kept.load(std::memory_order_relaxed));
  if ((marks.flags & Marks::kKnown) == 0) {
    marks = marksOf(node.bytes(), node.count);
    kept.store(std::bit_cast<std::uint64_t>(marks), std::memory_order_relaxed);
  }
  return marks;
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

/// What was written, in the order of its numbers.
struct Object {
  static constexpr unsigned kHeightBits = 16;

  Object(const PropertyList* written, std::uint64_t offset) : value(written), place(offset << kHeightBits) {}
  std::uint64_t offset() const { return place >> kHeightBits; }
  int height() const { return static_cast<int>(place & ((1U << kHeightBits) - 1)); }
  /// Of a container that was written whole.
  void setHeight(int height) { place |= static_cast<std::uint64_t>(height); }

  const PropertyList* value;
  std::uint64_t place;
};

/// A list that grows; the memory gets nothing back from it.
class Objects {
 public:
  Objects(std::size_t capacity, std::pmr::memory_resource& memory)
      : memory_(memory), first_(allocate(capacity)), capacity_(capacity) {}

  std::size_t size() const { return size_; }
  Object& operator[](std::size_t index) const { return first_[index]; }
  const Object* begin() const { return first_; }
  const Object* end() const { return first_ + size_; }

  void append(const Object& object) {
    if (size_ == capacity_) {
      grow();
    }
    first_[size_++] = object;
  }

 private:
  Object* allocate(std::size_t capacity) {
    return static_cast<Object*>(memory_.allocate(capacity * sizeof(Object), alignof(Object)));
  }
  [[gnu::noinline]] void grow() {
    capacity_ *= 2;
    first_ = std::copy_n(first_, size_, allocate(capacity_)) - size_;
  }

  std::pmr::memory_resource& memory_;
  Object* first_;
  std::size_t capacity_;
  std::size_t size_ = 0;
};

/// There are more objects than references of the width that was chosen can name.
struct TooManyObjects {};

/// The numbers that objects have got: a table with a place for each, more than half of them free. A place is
/// small; the object itself is looked at only when its place says that it may be the one.
class Numbers {
 public:
  using Reference = std::uint32_t;

  /// `places` is a power of two. What the memory gives is never given back to it.
  Numbers(std::size_t places, std::pmr::memory_resource& memory) : memory_(memory), places_(free(places)) {}

  // The number of an object that is equal, or `next` after it got that one:

  Reference findBytes(const PropertyListNode& node, Marks marks, Reference next, const Objects& objects) {
    return find(marks.hash, next, [&](Reference other) { return sameBytes(node, *objects[other].value); });
  }

  Reference findIdentity(const Identity& identity, Reference next, const Objects& objects) {
    return find(static_cast<std::uint32_t>(mixed(identity.number ^ identity.sort, kScatter)), next,
                [&](Reference other) { return identity == Identity(*objects[other].value); });
  }

 private:
  struct Place {
    std::uint32_t hash;
    std::uint32_t follower;  ///< the number after the object's; 0: the place is free
  };

  template <class IsSame>
  Reference find(std::uint32_t hash, Reference next, const IsSame& isSame) {
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

// Into room that was made, which is longer than a number by the few bytes that it is written wider. They give
// back where the next one goes: a byte that is written could otherwise be any variable of the writer.

std::uint8_t* putByte(std::uint8_t* to, std::size_t byte) {
  *to = static_cast<std::uint8_t>(byte);
  return to + 1;
}

std::uint8_t* putBigEndian(std::uint8_t* to, std::uint64_t value, std::size_t width) {
  value <<= 64 - 8 * width;
  if constexpr (std::endian::native == std::endian::little) {
    value = __builtin_bswap64(value);
  }
  std::memcpy(to, &value, sizeof(value));
  return to + width;
}

std::uint8_t* putBytes(std::uint8_t* to, const void* bytes, std::size_t count) {
  return std::copy_n(static_cast<const std::uint8_t*>(bytes), count, to);
}

std::uint8_t* putUnsigned(std::uint8_t* to, std::uint64_t value) {
  const std::size_t width = widthFor(value);
  return putBigEndian(putByte(to, 0x10U | static_cast<unsigned>(std::countr_zero(width))), value, width);
}

std::uint8_t* putMarker(std::uint8_t* to, std::size_t kind, std::size_t count) {
  return count < 0x0F ? putByte(to, kind << 4 | count) : putUnsigned(putByte(to, kind << 4 | 0x0F), count);
}

std::uint8_t* putScalar(std::uint8_t* to, const Identity& scalar) {
  switch (scalar.sort) {
    case Identity::boolean:
      return putByte(to, scalar.number != 0 ? 0x09 : 0x08);
    case Identity::large:
      return putBigEndian(putBigEndian(putByte(to, 0x14), 0, 8), scalar.number, 8);
    case Identity::integer:
      return putUnsigned(to, scalar.number);  // a negative one fills 8 bytes by itself
    default:
      return putBigEndian(putByte(to, scalar.sort == Identity::real ? 0x23 : 0x33), scalar.number, 8);
  }
}

/// Writes each object where its number is given: a container before its members and a dictionary's keys
/// before its values. The references of a container are filled in as its members get their numbers.
class Writer {
  static constexpr std::size_t kFewObjects = 32;
  static constexpr std::size_t kMostExpected = std::size_t{1} << 20;
  static constexpr std::size_t kMostRoomAhead = std::size_t{4} << 20;

 public:
  /// Mostly it is one message, or an array of dictionaries with about four objects each that no other has.
  /// References take 1, 2 or 4 bytes.
  Writer(const PropertyList& value, std::size_t referenceSize)
      : referenceSize_(referenceSize),
        mostObjects_(std::min<std::size_t>(std::size_t{1} << 8 * referenceSize, UINT32_MAX)),
        expected_(std::clamp((value[0].isDictionary() ? 4 : 2) * value.count(), kFewObjects,
                             std::min(mostObjects_, kMostExpected))),
        numbers_(std::bit_ceil(2 * expected_), memory_),
        objects_(expected_, memory_) {}

  /// Throws TooManyObjects.
  Bytes write(const PropertyList& value) {
    next_ = putBytes(next_, kBinaryPropertyListMagic.data(), kBinaryPropertyListMagic.size());
    write(value, 1);
    const std::uint64_t table = size();
    const std::size_t offsetSize = widthFor(table);
    room(objects_.size() * offsetSize + 32);
    std::uint8_t* to = next_;
    for (const Object& object : objects_) {
      to = putBigEndian(to, object.offset(), offsetSize);
    }
    to = putBigEndian(to, 0, 6);
    to = putByte(putByte(to, offsetSize), referenceSize_);
    for (const std::uint64_t number : {std::uint64_t{objects_.size()}, std::uint64_t{0}, table}) {
      to = putBigEndian(to, number, 8);
    }
    next_ = to;
    if (bytes_.empty()) {
      return {start_, next_};
    }
    bytes_.resize(size());
    return std::move(bytes_);
  }

 private:
  using Reference = Numbers::Reference;

  struct Written {
    Reference reference;
    int height;
  };

  Written write(const PropertyList& value, int depth) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    if (node == nullptr) {
      return {writeScalar(value), 0};
    }
    switch (node->kind) {
      case PropertyList::Kind::string:
      case PropertyList::Kind::data:
        return {writeBytes(value, *node), 0};
      case PropertyList::Kind::array:
      case PropertyList::Kind::dictionary:
        return writeContainer(value, *node, depth);
      default:
        return {writeScalar(value), 0};
    }
  }

  Reference writeBytes(const PropertyList& value, const PropertyListNode& node) {
    const Reference next = nextReference();
    const Marks marks = marksOf(node);
    const Reference reference = numbers_.findBytes(node, marks, next, objects_);
    if (reference == next) {
      begin(value);
      if (node.kind == PropertyList::Kind::string && (marks.flags & Marks::kAscii) == 0) {
        writeUtf16({node.bytes(), node.count});
      } else {
        room(node.count);
        next_ = putBytes(putMarker(next_, node.kind == PropertyList::Kind::string ? 0x5 : 0x4, node.count),
                         node.bytes(), node.count);
      }
    }
    return reference;
  }

  Reference writeScalar(const PropertyList& value) {
    if (value.isAbsent()) {
      fail("A container holds no value where one belongs.");
    }
    const Reference next = nextReference();
    const Identity identity(value);
    const Reference reference = numbers_.findIdentity(identity, next, objects_);
    if (reference == next) {
      begin(value);
      room(0);
      next_ = putScalar(next_, identity);
    }
    return reference;
  }

  void writeUtf16(std::string_view text) {
    const std::u16string units = utf16FromUtf8(text);
    room(2 * units.size());
    next_ = putMarker(next_, 0x6, units.size());
    for (const char16_t unit : units) {
      next_ = putBigEndian(next_, unit, 2);
    }
  }

  Written writeContainer(const PropertyList& value, const PropertyListNode& container, int depth) {
    const Reference next = nextReference();
    // One that only one other refers to is met once. One that was met before may be reached on a deeper path
    // now.
    if (container.isShared()) {
      const Reference reference = numbers_.findIdentity(Identity(value), next, objects_);
      if (reference != next) {
        const int height = objects_[reference].height();
        checkDepth(depth + height - 1);
        return {reference, height};
      }
    }
    begin(value);
    checkDepth(depth);
    const bool isDictionary = container.kind == PropertyList::Kind::dictionary;
    const std::size_t width = container.count * referenceSize_;
    room(isDictionary ? 2 * width : width);
    next_ = putMarker(next_, isDictionary ? 0xD : 0xA, container.count);
    std::size_t place = size();
    next_ += isDictionary ? 2 * width : width;
    if (isDictionary) {
      writeKeys(*container.keys(), place);
      place += width;
    }
    int height = 0;
    for (std::size_t i = 0; i < container.count; ++i) {
      const Written member = write(container.members()[i], depth + 1);
      putReference(place, member.reference);
      place += referenceSize_;
      height = std::max(height, member.height);
    }
    objects_[next].setHeight(++height);
    return {next, height};
  }

  /// Their references go to `place`.
  void writeKeys(const PropertyListNode& keys, std::size_t place) {
    for (const KnownKeys& known : knownKeys_) {
      if (known.keys == &keys) {
        std::copy_n(start_ + known.place, keys.count * referenceSize_, start_ + place);
        return;
      }
    }
    if (keys.isShared()) {
      knownKeys_[nextKnownKeys_++ % knownKeys_.size()] = {&keys, place};
    }
    for (std::size_t i = 0; i < keys.count; ++i) {
      const PropertyList& key = keys.handles()[i];
      putReference(place, writeBytes(key, *PropertyListAccess::node(key)));
      place += referenceSize_;
    }
  }

  Reference nextReference() const { return static_cast<Reference>(objects_.size()); }

  void begin(const PropertyList& value) {
    if (objects_.size() == mostObjects_) {
      failForNumber();
    }
    objects_.append({&value, size()});
  }

  [[noreturn, gnu::cold, gnu::noinline]] void failForNumber() const {
    if (mostObjects_ < UINT32_MAX) {
      throw TooManyObjects();
    }
    fail("There are more than 4294967295 objects.");
  }

  static void checkDepth(int depth) {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      failForDepth();
    }
  }

  std::size_t size() const { return static_cast<std::size_t>(next_ - start_); }

  /// Makes sure that `count` bytes, the longest scalar and the few that a number is longer than its width can
  /// be put.
  void room(std::size_t count) {
    if (count + kSlack > static_cast<std::size_t>(end_ - next_)) {
      grow(count + kSlack);
    }
  }

  /// To what all that is expected takes if it is like what was written, and a quarter more; within reason.
  [[gnu::noinline]] void grow(std::size_t count) {
    const std::size_t done = size();
    const std::size_t expected =
        std::min(done / std::max<std::size_t>(objects_.size(), 1) * expected_, kMostRoomAhead);
    Bytes bytes(done + std::max({count, done, expected + expected / 4}));
    std::copy_n(start_, done, bytes.data());
    bytes_.swap(bytes);
    start_ = bytes_.data();
    next_ = start_ + done;
    end_ = start_ + bytes_.size();
  }

  void putReference(std::size_t place, Reference reference) {
    for (std::size_t i = referenceSize_; i-- > 0; reference >>= 8) {
      start_[place + i] = static_cast<std::uint8_t>(reference);
    }
  }

  static constexpr std::size_t kSlack = 32;

  struct KnownKeys {
    const PropertyListNode* keys = nullptr;
    std::size_t place = 0;  ///< of their references
  };

  const std::size_t referenceSize_;
  const std::size_t mostObjects_;
  const std::size_t expected_;
  // What a message of the usual size needs while it is written; more comes from the heap.
  std::array<std::byte, 1280> few_;
  std::pmr::monotonic_buffer_resource memory_{few_.data(), few_.size()};
  Numbers numbers_;
  Objects objects_;
  std::array<KnownKeys, 4> knownKeys_;
  std::size_t nextKnownKeys_ = 0;
  std::array<std::uint8_t, 1024> fewBytes_;
  Bytes bytes_;  // when there are more
  std::uint8_t* start_ = fewBytes_.data();
  std::uint8_t* next_ = start_;
  std::uint8_t* end_ = start_ + fewBytes_.size();
};

}  // namespace

Bytes writeBinaryPropertyList(const PropertyList& value) {
  // What does not fit the narrow references is begun anew, which is noticed at its 257th object.
  for (std::size_t referenceSize = 1;; referenceSize *= 2) {
    try {
      return Writer(value, referenceSize).write(value);
    } catch (const TooManyObjects&) {
    }
  }
}

}  // namespace keldane
