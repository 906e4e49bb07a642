#include "clients/preferences/worker/tree/NodeRow.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

KeldaneFileNode::Pointer nodeWith(std::uint32_t simpleFlags) {
  KeldaneFileNode::Pointer node = KeldaneFileNode::create("f", false);
  node->setPath("/f");
  node->setSimpleFlags(simpleFlags);
  return node;
}

TEST(NodeRow, HasItsBoxFromTheSimpleFlags) {
  using namespace simple_flags;
  for (const std::uint32_t flags : {0U, kChecked, kEnabled, kGrayed, kChecked | kEnabled | kGrayed}) {
    const NodeRow row = nodeRow(*nodeWith(flags | kTypeChecked | kPriorityEnabled), false);
    EXPECT_EQ(row.checked, (flags & kChecked) != 0) << flags;
    EXPECT_EQ(row.enabled, (flags & kEnabled) != 0) << flags;
    EXPECT_EQ(row.partly, (flags & kGrayed) != 0) << flags;
  }
}

TEST(NodeRow, HasTextsThatCanBeShown) {
  const KeldaneFileNode::Pointer node = nodeWith(0);
  node->setDisplayName("a\nb");
  node->setState("Backed\xff up");
  node->setSizeValue(2048);
  const NodeRow row = nodeRow(*node, false);
  EXPECT_EQ(row.path, "/f");
  EXPECT_EQ(row.name, "a\\nb");
  EXPECT_EQ(row.state, "Backed\\xff up");
  EXPECT_EQ(row.size, "2.0 KiB");
  EXPECT_EQ(row.date, "");
  node->setBackupDate(Date::fromUnixTime(0));
  EXPECT_EQ(nodeRow(*node, false).date.substr(0, 2), "19");
}

TEST(NodeRow, AFolderHasNoSize) {
  const KeldaneFileNode::Pointer node = KeldaneFileNode::create("d", true);
  node->setSizeValue(2048);
  const NodeRow row = nodeRow(*node, true);
  EXPECT_TRUE(row.isFolder);
  EXPECT_EQ(row.size, "");
  EXPECT_EQ(row.path, "");
  EXPECT_FALSE(nodeRow(*node, false).isFolder);
}

}  // namespace
}  // namespace keldane
