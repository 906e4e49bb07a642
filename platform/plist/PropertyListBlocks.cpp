#include "platform/plist/PropertyListBlocks.h"

#include <algorithm>
#include <new>

namespace keldane {

PropertyListNode* PropertyListBlocks::allocate(PropertyList::Kind kind, std::size_t count,
                                               std::size_t payload) {
  if (payload > kLargestNode) {
    return PropertyListNode::allocate(kind, count, payload);
  }
  const std::size_t size = sizeFor(payload);
  if (size > size_ - used_) {
    leaveBlock();
    size_ = used_ = 0;  // in case there is no memory for the block
    const std::size_t wanted = std::clamp(expected_ + sizeof(Block), size + sizeof(Block), kBlockSize);
    block_ = new (::operator new(wanted)) Block;
    size_ = wanted;
    used_ = sizeof(Block);
  }
  auto* node = new (reinterpret_cast<char*>(block_) + used_) PropertyListNode(kind, count);
  node->placeInBlock = static_cast<std::uint16_t>(used_ / kAlignment);
  used_ += size;
  expected_ -= std::min(expected_, size);
  // Other threads may be releasing nodes of other blocks, but none of them knows this block yet.
  block_->users.store(block_->users.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  return node;
}

void PropertyListBlocks::drop(Block* block, std::uint32_t users) noexcept {
  if (block != nullptr && (block->users.load(std::memory_order_acquire) == users ||
                           block->users.fetch_sub(users, std::memory_order_acq_rel) == users)) {
    ::operator delete(block);
  }
}

void PropertyListBlocks::Reclaimer::reclaim(PropertyListNode* node) noexcept {
  Block* block = nullptr;
  if (node->placeInBlock != 0) {
    block = reinterpret_cast<Block*>(reinterpret_cast<char*>(node) - node->placeInBlock * kAlignment);
  }
  node->~PropertyListNode();
  if (block == nullptr) {
    ::operator delete(node);
  } else if (block == block_) {
    ++nodes_;
  } else {
    drop(block_, nodes_);
    block_ = block;
    nodes_ = 1;
  }
}

}  // namespace keldane
