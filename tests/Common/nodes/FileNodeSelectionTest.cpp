#include <gtest/gtest.h>

#include "tests/Common/nodes/FileNodes.h"

namespace keldane {

class KeldaneFileNodePrivateMethods {
 public:
  static void checkSelections(KeldaneFileNode& node) { node.checkSelections(); }
};

namespace {

using testing::folder;
using testing::named;
using testing::Names;
using testing::Node;
using testing::rootOf;

Node::Pointer backedUp(const char* name) {
  const Node::Pointer node = named(name);
  node->setBackupDate(Date{1});
  return node;
}

TEST(FileNodeSelection, WhatWasNeverBackedUpRefusesButItsParentIsChecked) {
  const Node::Pointer file = named("a");
  const Node::Pointer other = backedUp("b");
  const Node::Pointer parent = folder("f", {file, other});
  parent->setSelected(1);
  EXPECT_EQ(parent->selected(), 1) << "not derived anew from the file that refused";
  file->setSelected(1);
  EXPECT_EQ(file->selected(), 0);
  EXPECT_EQ(parent->selected(), -1);
}

TEST(FileNodeSelection, AFolderStandsAsSelectedUntilAChangeBelowClimbsThroughIt) {
  const Node::Pointer a = backedUp("a");
  const Node::Pointer b = named("b");
  const Node::Pointer f = folder("F", {a, b});
  f->setSelected(1);
  EXPECT_EQ(f->selected(), 1);
  EXPECT_EQ(a->selected(), 1);
  EXPECT_EQ(b->selected(), 0);
  a->setSelected(0);
  EXPECT_EQ(f->selected(), 0);
  a->setSelected(1);
  EXPECT_EQ(f->selected(), -1);
}

TEST(FileNodeSelection, AnyNumberButZeroSelects) {
  const Node::Pointer a = backedUp("a");
  a->setSelected(-1);
  EXPECT_EQ(a->selected(), 1);
  a->setSelected(0);
  EXPECT_EQ(a->selected(), 0);
}

TEST(FileNodeSelection, CheckingAFolderWithoutChildrenSelectsIt) {
  const Node::Pointer empty = folder("f");
  KeldaneFileNodePrivateMethods::checkSelections(*empty);
  EXPECT_EQ(empty->selected(), 1);
}

TEST(FileNodeSelection, PartlySelectedClimbsToTheRoot) {
  const Node::Pointer a = backedUp("a");
  const Node::Pointer root = rootOf({folder("f", {folder("g", {a, backedUp("b")})}), backedUp("c")});
  a->setSelected(1);
  EXPECT_EQ(root->selected(), -1);
  EXPECT_EQ(root->nodeAtPath("/f")->selected(), -1);
  EXPECT_EQ(root->nodeAtPath("/c")->selected(), 0);
  root->nodeAtPath("/f/g/b")->setSelected(1);
  EXPECT_EQ(root->nodeAtPath("/f")->selected(), 1);
  EXPECT_EQ(root->selected(), -1);
  root->setSelected(0);
  EXPECT_EQ(a->selected(), 0);
}

Names pathsOf(const std::vector<Node::Pointer>& nodes) {
  Names paths;
  for (const Node::Pointer& node : nodes) {
    paths.push_back(node->path().value_or("none"));
  }
  return paths;
}

TEST(FileNodeSelection, ComesDownToItsDeepestFoldersOrItsTopmostNodes) {
  const Node::Pointer root =
      rootOf({folder("F", {folder("S", {backedUp("x"), backedUp("y")}), backedUp("c")}), folder("empty"),
              folder("part", {backedUp("p"), backedUp("q")})});
  root->nodeAtPath("/F")->setSelected(1);
  EXPECT_EQ(pathsOf(root->deepestFullSelections()), (Names{"/F/S", "/F/c"}));
  EXPECT_EQ(pathsOf(root->selectedChildren(false)), Names{"/F"});
  EXPECT_EQ(pathsOf(root->selectedChildren(true)), (Names{"/F/S/x", "/F/S/y", "/F/c"}));
  root->nodeAtPath("/empty")->setSelected(1);
  root->nodeAtPath("/part/q")->setSelected(1);
  EXPECT_EQ(pathsOf(root->deepestFullSelections()), (Names{"/F/S", "/F/c", "/empty", "/part/q"}));
  EXPECT_EQ(pathsOf(root->selectedChildren(false)), (Names{"/F", "/empty", "/part/q"}));
  EXPECT_EQ(pathsOf(root->selectedChildren(true)), (Names{"/F/S/x", "/F/S/y", "/F/c", "/part/q"}))
      << "an empty folder has nothing in it";
  EXPECT_TRUE(backedUp("a")->deepestFullSelections().empty());
  EXPECT_TRUE(backedUp("a")->selectedChildren(false).empty());
}

}  // namespace
}  // namespace keldane
