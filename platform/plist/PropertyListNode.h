// The memory layout of property-list values. This header is for this folder only.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The shared part of a value that does not fit into the handle. References are counted, and the node is
/// freed with the last one. The bytes behind the header, in the same allocation, depend on the kind. They are
/// text and a NUL, or data, or the handles of the elements, or the handle of the keys and those of the
/// values.
///
/// The keys are an array node of their own, so that dictionaries with the same keys share them. When the keys
/// are too many to be searched one by one, their sorted positions follow their handles.
struct PropertyListNode {
  static constexpr std::size_t kLinearLookUp = 16;

  PropertyListNode(PropertyList::Kind nodeKind, std::size_t nodeCount) : kind(nodeKind), count(nodeCount) {}

  static PropertyListNode* allocate(PropertyList::Kind kind, std::size_t count, std::size_t payload);
  /// A container whose elements or values are absent.
  static PropertyListNode* allocateArray(std::size_t count, std::size_t behind = 0);
  static PropertyListNode* allocateDictionary(const PropertyList& keys);

  void addReference() const noexcept { references.fetch_add(1, std::memory_order_relaxed); }
  /// Adds a reference, without an atomic operation, to a node that no other thread can know yet.
  void addUnpublishedReference() const noexcept {
    references.store(references.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  /// Drops a reference and returns whether it was the last one. The only reference is not counted down,
  /// because no other thread can see the count.
  bool dropReference() const noexcept {
    return references.load(std::memory_order_acquire) == 1 ||
           references.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }
  bool isShared() const noexcept { return references.load(std::memory_order_relaxed) > 1; }

  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }
  PropertyList* handles() noexcept { return reinterpret_cast<PropertyList*>(this + 1); }
  const PropertyList* handles() const noexcept { return reinterpret_cast<const PropertyList*>(this + 1); }
  std::size_t handleCount() const noexcept {
    return kind == PropertyList::Kind::array ? count : kind == PropertyList::Kind::dictionary ? 1 + count : 0;
  }
  /// For a dictionary: the node of its keys, and its values. There are `count` of each.
  const PropertyListNode* keys() const noexcept;
  PropertyList* values() noexcept { return handles() + 1; }
  const PropertyList* values() const noexcept { return handles() + 1; }
  /// The elements of an array or the values of a dictionary.
  const PropertyList* members() const noexcept {
    return kind == PropertyList::Kind::array ? handles() : values();
  }
  /// The sorted positions of keys that are too many to be searched one by one.
  std::uint32_t* order() noexcept { return reinterpret_cast<std::uint32_t*>(handles() + count); }
  const std::uint32_t* order() const noexcept {
    return reinterpret_cast<const std::uint32_t*>(handles() + count);
  }
  /// The value under a key of a dictionary; null when there is none. The search is quickest when the key is
  /// at position `first`.
  const PropertyList* find(std::string_view key, std::size_t first = 0) const noexcept;

  mutable std::atomic<std::uint32_t> references = 1;
  const PropertyList::Kind kind;
  PropertyList::NumberKind numberKind = PropertyList::NumberKind::boolean;
  /// The position of the node in its block, in units of its alignment; 0 for a node with an allocation of its
  /// own.
  std::uint16_t placeInBlock = 0;
  /// Elements, entries, or bytes of text or data.
  const std::size_t count;
  /// The value of a scalar. It is mutable because the last two members are not part of the value.
  mutable union {
    std::int64_t signedInteger;
    std::uint64_t unsignedInteger;
    double real;
    std::uint64_t marks;  ///< for text and data, the writer's marks; 0 until they are computed
    const PropertyListNode* nextDead;
  } scalar = {0};
};

/// Access to the one word of a handle. 0 is the absent value. An even number is the address of a node. An odd
/// number is a small integer or boolean without a node: bits 1 and 2 are its kind, the bits above its value.
class PropertyListAccess {
 public:
  static constexpr int kInlineShift = 3;
  static constexpr std::int64_t kInlineMaximum = INT64_MAX >> kInlineShift;
  static constexpr std::int64_t kInlineMinimum = INT64_MIN >> kInlineShift;

  static bool isInline(const PropertyList& value) noexcept { return (value.bits_ & 1) != 0; }
  static const PropertyListNode* node(const PropertyList& value) noexcept {
    return isInline(value) ? nullptr : reinterpret_cast<const PropertyListNode*>(value.bits_);
  }
  /// The handle's word, which is the same for all handles of one value. It does not count as a reference.
  static std::uintptr_t bits(const PropertyList& value) noexcept { return value.bits_; }
  /// Another handle of the value.
  static PropertyList share(std::uintptr_t bits) noexcept {
    PropertyList value;
    value.bits_ = bits;
    value.retain();
    return value;
  }
  /// Another handle of a value that no other thread can know yet, made without an atomic operation.
  static PropertyList shareUnpublished(std::uintptr_t bits) noexcept {
    PropertyList value;
    value.bits_ = bits;
    if (const PropertyListNode* shared = node(value)) {
      shared->addUnpublishedReference();
    }
    return value;
  }
  /// Leaves the handle absent and its reference with the caller.
  static const PropertyListNode* takeNode(PropertyList& value) noexcept {
    const PropertyListNode* taken = node(value);
    value.bits_ = 0;
    return taken;
  }
  /// Takes over the caller's reference.
  static PropertyList adopt(const PropertyListNode* node) noexcept {
    PropertyList value;
    value.bits_ = reinterpret_cast<std::uintptr_t>(node);
    return value;
  }

  static constexpr bool fitsInline(std::int64_t value) noexcept {
    return value >= kInlineMinimum && value <= kInlineMaximum;
  }
  static PropertyList inlineNumber(PropertyList::NumberKind kind, std::int64_t number) noexcept {
    PropertyList value;
    value.bits_ =
        (static_cast<std::uintptr_t>(number) << kInlineShift) | (static_cast<std::uintptr_t>(kind) << 1) | 1U;
    return value;
  }
  static PropertyList::NumberKind inlineKind(const PropertyList& value) noexcept {
    return static_cast<PropertyList::NumberKind>((value.bits_ >> 1) & 3U);
  }
  static std::int64_t inlineValue(const PropertyList& value) noexcept {
    return static_cast<std::int64_t>(value.bits_) >> kInlineShift;
  }

  static PropertyList& keys(PropertyList::Keys& keys) noexcept { return keys.keys_; }
  /// The keys of dictionaries, all of them strings.
  static PropertyList makeKeys(PropertyList::Array keys);
  /// Whether no two keys are equal, as a dictionary requires.
  static bool keysDiffer(const PropertyListNode& keys) noexcept;
  /// The number that decimal text begins with, whatever the user's locale; 0 when there is none.
  static double realFromText(std::string_view text) noexcept;
};

inline const PropertyListNode* PropertyListNode::keys() const noexcept {
  return PropertyListAccess::node(handles()[0]);
}

}  // namespace keldane
