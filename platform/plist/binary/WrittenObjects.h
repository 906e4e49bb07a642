// The objects that the writer has written, and the search for one that is equal to a value. This header is
// for this folder only.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory_resource>
#include <span>
#include <utility>

#include "platform/plist/PropertyListNode.h"
#include "platform/plist/binary/ByteMarks.h"

namespace keldane {

/// Tells whether two scalars or containers are the same object in the file. Scalars are the same when they
/// have the same sort and the same value. A NaN is the same as itself, and 0.0 and -0.0 differ. A container
/// is the same as itself only. Strings and data are compared by their bytes instead.
struct ObjectIdentity {
  enum Sort : std::uint32_t { bytes, boolean, integer, large, real, date, container };
  bool operator==(const ObjectIdentity&) const = default;

  Sort sort = bytes;
  std::uint64_t number = 0;  ///< the value itself, or the container's address

  explicit ObjectIdentity(const PropertyList& value) {
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

 private:
  void setInteger(PropertyList::NumberKind kind, std::int64_t value) {
    sort = kind == PropertyList::NumberKind::boolean                        ? boolean
           : kind == PropertyList::NumberKind::unsignedInteger && value < 0 ? large
                                                                            : integer;
    number = static_cast<std::uint64_t>(value);
  }
};

/// One object that was written.
struct WrittenObject {
  static constexpr unsigned kHeightBits = 16;

  WrittenObject(const PropertyList* written, std::uint64_t offset)
      : value(written), place(offset << kHeightBits) {}
  std::uint64_t offset() const { return place >> kHeightBits; }
  /// The levels of containers from a container downwards; 0 while it is being written.
  int height() const { return static_cast<int>(place & ((1U << kHeightBits) - 1)); }
  /// Called once, when the container is complete.
  void setHeight(int height) { place |= static_cast<std::uint64_t>(height); }

  const PropertyList* value;
  std::uint64_t place;
};

/// The written objects in the order of their numbers. The list takes memory from its resource and gives none
/// back.
class WrittenObjects {
 public:
  WrittenObjects(std::size_t capacity, std::pmr::memory_resource& memory)
      : memory_(memory), first_(allocate(capacity)), capacity_(capacity) {}

  std::size_t size() const { return size_; }
  WrittenObject& operator[](std::size_t index) const { return first_[index]; }
  const WrittenObject* begin() const { return first_; }
  const WrittenObject* end() const { return first_ + size_; }

  void append(const WrittenObject& object) {
    if (size_ == capacity_) {
      grow();
    }
    first_[size_++] = object;
  }

 private:
  WrittenObject* allocate(std::size_t capacity) {
    return static_cast<WrittenObject*>(
        memory_.allocate(capacity * sizeof(WrittenObject), alignof(WrittenObject)));
  }
  [[gnu::noinline]] void grow() {
    capacity_ *= 2;
    first_ = std::copy_n(first_, size_, allocate(capacity_)) - size_;
  }

  std::pmr::memory_resource& memory_;
  WrittenObject* first_;
  std::size_t capacity_;
  std::size_t size_ = 0;
};

/// Finds the number of an object that is equal to a value. This is a hash table with open addressing in which
/// more than half of the places are free. A place holds a hash and a number only. The object itself is
/// compared when the hashes are equal.
class ObjectNumbers {
 public:
  using Reference = std::uint32_t;

  /// `places` is a power of two. The table takes memory from its resource and gives none back.
  ObjectNumbers(std::size_t places, std::pmr::memory_resource& memory)
      : memory_(memory), places_(allocate(places)) {}

  /// The number of a string or data object with the same bytes. When there is none, the answer is `next`,
  /// which from now on is the number of this one.
  Reference findBytes(const PropertyListNode& node, ByteMarks marks, Reference next,
                      const WrittenObjects& objects) {
    return find(marks.hash, next, [&](Reference other) { return sameBytes(node, *objects[other].value); });
  }

  /// The number of a scalar or a container with the same identity. When there is none, the answer is `next`,
  /// which from now on is the number of this one.
  Reference findIdentity(const ObjectIdentity& identity, Reference next, const WrittenObjects& objects) {
    constexpr std::uint64_t kScatter = 0x9E3779B97F4A7C15;
    return find(static_cast<std::uint32_t>(mixed(identity.number ^ identity.sort, kScatter)), next,
                [&](Reference other) { return identity == ObjectIdentity(*objects[other].value); });
  }

 private:
  struct Place {
    std::uint32_t hash;
    std::uint32_t follower;  ///< the object's number plus one; 0 for a free place
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

  std::span<Place> allocate(std::size_t places) {
    void* memory = memory_.allocate(places * sizeof(Place), alignof(Place));
    std::memset(memory, 0, places * sizeof(Place));
    return {static_cast<Place*>(memory), places};
  }
  Place* start(std::uint32_t hash) const { return places_.data() + (hash & (places_.size() - 1)); }
  Place* after(Place* place) const { return place == &places_.back() ? places_.data() : place + 1; }

  void grow() {
    const std::span<Place> old = std::exchange(places_, allocate(4 * places_.size()));
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

}  // namespace keldane
