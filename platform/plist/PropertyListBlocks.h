// Memory for the many small nodes of a value that is read from bytes. This header is for this folder only.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/plist/PropertyListNode.h"

namespace keldane {

/// Allocates nodes side by side in blocks. A block is freed with the last node in it. So a node that outlives
/// the others keeps one block, which is no larger than `kBlockSize` and no larger than the expected bytes.
/// Only one thread uses this object; the nodes may be used like any others.
class PropertyListBlocks {
 public:
  PropertyListBlocks() = default;
  ~PropertyListBlocks() { leaveBlock(); }
  PropertyListBlocks(const PropertyListBlocks&) = delete;
  PropertyListBlocks& operator=(const PropertyListBlocks&) = delete;

  /// Announces the number of bytes that the following nodes will take.
  void expect(std::size_t bytes) { expected_ = bytes; }
  PropertyListNode* allocate(PropertyList::Kind kind, std::size_t count, std::size_t payload);

 private:
  static constexpr std::size_t kAlignment = alignof(PropertyListNode);

  struct alignas(kAlignment) Block {
    std::atomic<std::uint32_t> users = 1;  // the nodes in it, and the PropertyListBlocks that fills it
  };

 public:
  /// The number of bytes of a block that a node takes.
  static constexpr std::size_t sizeFor(std::size_t payload) {
    return (sizeof(PropertyListNode) + payload + kAlignment - 1) / kAlignment * kAlignment;
  }

  /// Frees dead nodes, one after the other. Nodes of one block that follow each other are counted down at
  /// once.
  class Reclaimer {
   public:
    Reclaimer() = default;
    ~Reclaimer() { drop(block_, nodes_); }
    Reclaimer(const Reclaimer&) = delete;
    Reclaimer& operator=(const Reclaimer&) = delete;
    void reclaim(PropertyListNode* node) noexcept;

   private:
    Block* block_ = nullptr;
    std::uint32_t nodes_ = 0;
  };

 private:
  static constexpr std::size_t kBlockSize = 8192;
  static constexpr std::size_t kLargestNode = kBlockSize / 8;

  static void drop(Block* block, std::uint32_t users) noexcept;
  void leaveBlock() noexcept {
    drop(block_, 1);
    block_ = nullptr;
  }

  std::size_t expected_ = 0;
  Block* block_ = nullptr;
  std::size_t used_ = 0;
  std::size_t size_ = 0;
};

}  // namespace keldane
