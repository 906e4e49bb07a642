#include "platform/plist/PropertyListBlocks.h"

#include <gtest/gtest.h>

#include <cstring>

namespace keldane {
namespace {

PropertyList adopted(PropertyListNode* node) { return PropertyListAccess::adopt(node); }

TEST(PropertyListBlocks, NodesLieSideBySideBehindTheHeaderOfTheirBlock) {
  PropertyListBlocks blocks;
  blocks.expect(4 * PropertyListBlocks::sizeFor(20));
  std::vector<PropertyList> values;
  const PropertyListNode* before = nullptr;
  for (int i = 0; i < 4; ++i) {
    PropertyListNode* node = blocks.allocate(PropertyList::Kind::data, 20, 20);
    std::memset(node->bytes(), 'a' + i, 20);
    EXPECT_NE(node->placeInBlock, 0U) << "which would mean an allocation of its own";
    if (before != nullptr) {
      EXPECT_EQ(reinterpret_cast<const char*>(node) - reinterpret_cast<const char*>(before),
                static_cast<std::ptrdiff_t>(PropertyListBlocks::sizeFor(20)));
    }
    before = node;
    values.push_back(adopted(node));
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(values[i], PropertyList::data(Bytes(20, static_cast<std::uint8_t>('a' + i))));
  }
}

TEST(PropertyListBlocks, ANodeOutlivesItsBlocksOwnerAndTheOtherNodes) {
  PropertyList kept;
  {
    PropertyListBlocks blocks;
    std::vector<PropertyList> values;
    for (int i = 0; i < 1000; ++i) {  // several blocks
      PropertyListNode* node = blocks.allocate(PropertyList::Kind::data, 100, 100);
      std::memset(node->bytes(), i % 100, 100);
      values.push_back(adopted(node));
    }
    kept = values[500];
    EXPECT_EQ(values[999], PropertyList::data(Bytes(100, 99)));
  }
  EXPECT_EQ(kept, PropertyList::data(Bytes(100, 0)));
}

TEST(PropertyListBlocks, ALargeNodeHasAnAllocationOfItsOwn) {
  PropertyListBlocks blocks;
  PropertyListNode* node = blocks.allocate(PropertyList::Kind::data, 5000, 5000);
  std::memset(node->bytes(), 'x', 5000);
  EXPECT_EQ(node->placeInBlock, 0U);
  EXPECT_EQ(adopted(node), PropertyList::data(Bytes(5000, 'x')));
}

}  // namespace
}  // namespace keldane
