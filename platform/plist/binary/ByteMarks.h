// Properties of the bytes of a string or data that the writer computes once and keeps with them. This header
// is for this folder only.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "platform/plist/PropertyListNode.h"

namespace keldane {

/// A hash of the bytes, and whether all of them are ASCII.
struct ByteMarks {
  static constexpr std::uint32_t kKnown = 1, kAscii = 2;

  std::uint32_t flags;
  std::uint32_t hash;

  bool isAscii() const { return (flags & kAscii) != 0; }
};

/// The hash differs from process to process, so that nobody can prepare names that have the same one.
ByteMarks marksOf(const char* bytes, std::size_t size);

/// The marks of a string or data node. They are computed the first time. Any number of threads may call it,
/// because each of them would store the same marks.
inline ByteMarks marksOf(const PropertyListNode& node) {
  const std::atomic_ref<std::uint64_t> kept(node.scalar.marks);
  auto marks = std::bit_cast<ByteMarks>(kept.load(std::memory_order_relaxed));
  if ((marks.flags & ByteMarks::kKnown) == 0) {
    marks = marksOf(node.bytes(), node.count);
    kept.store(std::bit_cast<std::uint64_t>(marks), std::memory_order_relaxed);
  }
  return marks;
}

/// A well-distributed 64-bit number from two others.
inline std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

}  // namespace keldane
