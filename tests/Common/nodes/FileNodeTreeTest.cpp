#include <gtest/gtest.h>

#include <random>

#include "platform/objects/Exceptions.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/Common/nodes/FileNodes.h"

namespace keldane {

namespace {

using testing::folder;
using testing::named;
using testing::Names;
using testing::namesOf;
using testing::Node;
using testing::rootOf;

TEST(FileNodeTree, PathsLeadFromTheRoot) {
  const Node::Pointer x = named("x");
  const Node::Pointer users = folder("Users", {x});
  const Node::Pointer root = rootOf({users});
  EXPECT_EQ(root->nodeAtPath("/Users/x"), x);
  EXPECT_EQ(root->nodeAtPath("/Users/y"), nullptr);
  EXPECT_EQ(root->nodeAtPath("/Users/y/z"), nullptr);
  EXPECT_EQ(root->nodeAtPath("/"), root);
  EXPECT_EQ(root->nodeAtPath(""), root);
  EXPECT_EQ(x->nodeAtPath("/Users"), users) << "the look-up starts at the root";
  EXPECT_EQ(root->nodeAtPath("a/b"), nullptr) << "the first component is skipped, b is looked for";
  EXPECT_EQ(root->nodeAtPath("a/Users"), users);
  EXPECT_EQ(root->nodeAtPath("//Users//x/"), x);
}

TEST(FileNodeTree, NamesAreComparedExactlyAndTheFirstOneWins) {
  const Node::Pointer first = named("a");
  const Node::Pointer second = named("a");
  const Node::Pointer root = rootOf({Node::create(), first, second, named("")});
  EXPECT_EQ(root->childWithName("a"), first);
  EXPECT_EQ(root->childWithName("A"), nullptr);
  EXPECT_EQ(root->childWithName("")->fileName().isString(), true) << "no name is not an empty one";
  root->removeChild(second);
  EXPECT_EQ(root->childWithName("a"), nullptr) << "both have the path";
  EXPECT_EQ(root->count(), 2U);
  EXPECT_EQ(first->parent(), root) << "left as it was";
}

TEST(FileNodeTree, RemovingByPathDetachesOrDoesNothing) {
  const Node::Pointer root = rootOf({folder("Users", {named("x")}), named("y")});
  root->removeNodeAtPath("/Users/x");
  EXPECT_EQ(root->nodeAtPath("/Users/x"), nullptr);
  root->removeNodeAtPath("/Users/x");
  root->removeNodeAtPath("/none/at/all");
  root->removeNodeAtPath("/");
  EXPECT_EQ(namesOf(root->children()), (Names{"Users", "y"}));
  root->removeChild(nullptr);
  root->addChild(nullptr);
  EXPECT_EQ(root->count(), 2U);
}

TEST(FileNodeTree, OneChildMayBeThereTwiceAndGoesAtOnce) {
  const Node::Pointer child = named("a");
  const Node::Pointer root = rootOf({child, child, named("b")});
  EXPECT_EQ(namesOf(root->children()), (Names{"a", "a", "b"}));
  root->removeChild(child);
  EXPECT_EQ(namesOf(root->children()), Names{"b"});
}

TEST(FileNodeTree, RemovingByPathTakesWhatHoldsThatPathFromElsewhere) {
  const Node::Pointer stale = Node::create();
  stale->initWithDictionary(PropertyList::dictionary({{"fileName", "b"}, {"path", "/a"}}));
  const Node::Pointer root = rootOf({named("a"), stale, named("c")});
  root->removeNodeAtPath("/a");
  EXPECT_EQ(namesOf(root->children()), Names{"c"}) << "nodes of one path are equal, whatever their names";
}

TEST(FileNodeTree, WithoutPathsANodeIsEqualToNoneAndRemovedAsItself) {
  const Node::Pointer one = named("a");
  const Node::Pointer parent = folder("f", {one, named("a")});
  EXPECT_FALSE(one->isEqual(one.get()));
  parent->removeChild(one);
  EXPECT_EQ(parent->count(), 1U);
}

TEST(FileNodeTree, NodesOfOnePathAreEqual) {
  const Node::Pointer one = Node::fileNodeForPath("/etc");
  const Node::Pointer other = Node::create();
  other->setPath("/etc");
  EXPECT_TRUE(one->isEqual(other.get()));
  EXPECT_FALSE(one->isEqual(nullptr));
  other->setPath("/ETC");
  EXPECT_FALSE(one->isEqual(other.get()));
}

TEST(FileNodeTree, ToldWhetherThereAreFoldersAndFiles) {
  bool folders = true, files = true;
  named("a")->hasChildDirectories(folders, files);
  EXPECT_FALSE(folders || files);
  folder("f", {folder("g"), named("a")})->hasChildDirectories(folders, files);
  EXPECT_TRUE(folders && files);
  folder("f", {named("a")})->hasChildDirectories(folders, files);
  EXPECT_TRUE(!folders && files);
}

TEST(FileNodeTree, AFlushDropsTheSubtree) {
  const Node::Pointer root = rootOf({folder("f", {named("x")})});
  root->setImage(std::make_shared<int>(1));
  root->flush();
  EXPECT_EQ(root->children(), nullptr);
  EXPECT_EQ(root->image(), nullptr);
  root->addChild(named("new"));
  EXPECT_EQ(root->count(), 1U);
}

TEST(FileNodeTree, APathIsKeptOnceItWasDerived) {
  const Node::Pointer x = named("x");
  const Node::Pointer root = rootOf({x});
  EXPECT_TRUE(x->dictionary()["path"].isAbsent());
  EXPECT_EQ(x->path(), "/x");
  EXPECT_EQ(x->dictionary()["path"], PropertyList("/x"));
  rootOf({folder("elsewhere", {x})});
  EXPECT_EQ(x->path(), "/x");
}

TEST(FileNodeTree, OddNamesMakePathsAllTheSame) {
  const Node::Pointer root = rootOf({});
  for (const char* name : {"", "/", "..", "a/b", "with \n newline"}) {
    const Node::Pointer child = named(name);
    root->addChild(child);
    EXPECT_TRUE(child->path());
    EXPECT_EQ(root->childWithName(name), child);
  }
}

TEST(FileNodeTree, ABrowserCannotAskForATreeWithoutAPath) {
  const Node::Pointer x = named("x");
  const Node::Pointer root = folder("f", {x});
  EXPECT_FALSE(root->showInRestoreBrowser());
  EXPECT_THROW(x->showInRestoreBrowser(), AssertionFailure);
}

// --- Ownership ---

TEST(FileNodeTree, AHeldNodeHoldsWhatIsAboveIt) {
  Node::Pointer x;
  {
    const Node::Pointer root = rootOf({folder("Users", {named("x"), named("y")})});
    x = root->nodeAtPath("/Users/x");
  }
  EXPECT_EQ(x->path(), "/Users/x");
  EXPECT_EQ(namesOf(x->parent()->children()), (Names{"x", "y"}));
  EXPECT_EQ(x->root()->fileName().string(), "/");
}

TEST(FileNodeTree, ANodeThatIsMovedHoldsItsNewParent) {
  const Node::Pointer x = named("x");
  const Node::Pointer was = folder("was", {x});
  folder("now", {x});
  EXPECT_EQ(x->parent()->fileName().string(), "now");
  EXPECT_EQ(was->count(), 1U) << "it stays in the former parent's list";
  x->setParent(nullptr);
  EXPECT_EQ(x->root(), x);
}

TEST(FileNodeTree, ANodeInAListAloneDoesNotHoldItsParent) {
  const Node::Pointer was = folder("was", {named("x")});
  folder("now", {was->childWithName("x")});
  EXPECT_EQ((*was->children())[0].parent(), nullptr);
}

TEST(FileNodeTree, NoCircleCanBeMade) {
  const Node::Pointer leaf = folder("leaf");
  const Node::Pointer middle = folder("middle", {leaf});
  const Node::Pointer top = folder("top", {middle});
  EXPECT_THROW(top->addChild(top), InvalidArgument);
  EXPECT_THROW(leaf->addChild(top), InvalidArgument);
  EXPECT_THROW(leaf->addChild(leaf), InvalidArgument);
  EXPECT_THROW(top->setParent(leaf), InvalidArgument);
  EXPECT_THROW(top->setParent(top), InvalidArgument);
  leaf->setParent(nullptr);
  middle->setParent(nullptr);
  EXPECT_THROW(leaf->addChild(top), InvalidArgument) << "the lists lead back";
  const Node::Pointer copy = top->copy();
  EXPECT_THROW(leaf->addChild(copy), InvalidArgument) << "its list has the same children";
  EXPECT_THROW(top->setParent(copy), InvalidArgument) << "a copy holds what it was made from";
  EXPECT_EQ(leaf->children(), nullptr);
}

// --- Copies ---

TEST(FileNodeTree, ACopyLeavesBehindWhatItShould) {
  const Node::Pointer child = named("c");
  const Node::Pointer node = folder("f", {child});
  const Node::Pointer root = rootOf({node});
  node->setDisplayName("F");
  node->setBackupFlags(0x10);
  node->setSimpleFlags(3);
  node->setBackupColor(2);
  node->setBackupDate(Date{7});
  node->setVersion(3);
  node->setState("Backed up");
  node->setTotalCount(4);
  node->setSizeValue(5);
  node->setUid(6);
  node->setGid(8);
  node->setInPolicy(true);
  node->setSelected(1);
  node->setPurgeDate(Date{9});
  node->setImage(std::make_shared<int>(1));
  EXPECT_EQ(node->path(), "/f");
  const Node::Pointer copy = node->copy();
  EXPECT_EQ(copy->purgeDate(), PropertyList(Date{9}));
  EXPECT_EQ(copy->image(), node->image());
  EXPECT_EQ(copy->backupFlags(), 0U);
  EXPECT_FALSE(copy->isBackup());
  EXPECT_EQ(copy->simpleFlags(), 0U);
  EXPECT_EQ(copy->backupColor(), 0);
  EXPECT_TRUE(copy->dictionary()["path"].isAbsent());
  EXPECT_EQ(copy->parent(), root);
  EXPECT_EQ(copy->path(), "/f") << "from its parent";
  EXPECT_EQ(copy->displayName(), PropertyList("F"));
  EXPECT_EQ(copy->backupDate(), PropertyList(Date{7}));
  EXPECT_EQ(copy->version(), PropertyList(3));
  EXPECT_EQ(copy->state(), PropertyList("Backed up"));
  EXPECT_EQ(copy->totalCount(), 4U);
  EXPECT_EQ(copy->dictionary()["size"], PropertyList(5));
  EXPECT_EQ(copy->uid(), 6U);
  EXPECT_EQ(copy->gid(), 8U);
  EXPECT_TRUE(copy->isDirectory() && copy->inPolicy());
  EXPECT_EQ(copy->selected(), 1);
  EXPECT_EQ((*copy->children())[0].pointer(), child);
  EXPECT_EQ(child->parent(), node) << "still the node copied";
  EXPECT_EQ(root->count(), 1U) << "beside it, not in the list";
}

TEST(FileNodeTree, ACopyOfAParentCannotBeGivenChildren) {
  const Node::Pointer node = folder("f", {named("c")});
  const Node::Pointer copy = node->copy();
  EXPECT_THROW(copy->addChild(named("d")), InvalidArgument);
  EXPECT_THROW(copy->removeChild(node->childWithName("c")), InvalidArgument);
  EXPECT_THROW(copy->sortUsingDescriptors({{"fileName"}}), InvalidArgument);
  node->addChild(named("d"));
  EXPECT_EQ(copy->count(), 1U) << "a list of its own";
  copy->flush();
  copy->addChild(named("d"));
  const Node::Pointer emptied = folder("e", {named("c")});
  emptied->removeChild(emptied->childWithName("c"));
  const Node::Pointer empty = emptied->copy();
  ASSERT_NE(empty->children(), nullptr) << "an empty list is a list";
  empty->addChild(named("d"));
  EXPECT_EQ(empty->count(), 1U);
  EXPECT_EQ(emptied->count(), 0U);
  const Node::Pointer childless = folder("g")->copy();
  EXPECT_EQ(childless->children(), nullptr);
  childless->addChild(named("d"));
  EXPECT_EQ(childless->count(), 1U);
}

TEST(FileNodeTree, ACopyHoldsWhatItWasMadeFrom) {
  Node::Pointer copy;
  {
    const Node::Pointer node = folder("f", {named("c")});
    copy = node->copy()->copy();
  }
  EXPECT_EQ((*copy->children())[0].parent()->fileName().string(), "f");
}

TEST(FileNodeTree, ACopyInTheTreeItCameFromIsFreedWithIt) {
  const Node::Pointer node = folder("f", {named("c")});
  const Node::Pointer root = rootOf({node});
  root->addChild(node->copy());
  EXPECT_EQ(root->count(), 2U);
}

// --- Large and deep trees ---

TEST(FileNodeTree, DepthDoesNotUseTheStack) {
  constexpr int kDepth = 20000;
  PropertyList value = PropertyList::dictionary({{"fileName", "d"}, {"isDirectory", true}});
  for (int i = 1; i < kDepth; ++i) {
    value = PropertyList::dictionary(
        {{"fileName", "d"}, {"isDirectory", true}, {"children", PropertyList::array({value})}});
  }
  const Node::Pointer root = Node::create();
  root->initWithDictionary(value);
  root->sortUsingDescriptors({{"fileName"}, {"totalCount", false}});
  root->setSelected(1);
  std::vector<Node::Pointer> deepest = root->deepestFullSelections();
  ASSERT_EQ(deepest.size(), 1U);
  EXPECT_EQ(deepest[0]->root(), root);
  EXPECT_TRUE(root->selectedChildren(true).empty());
  deepest[0]->setSelected(0);
  EXPECT_EQ(root->selected(), 0);
  EXPECT_EQ(root->sizeValue(), 0U);
  const Node::Pointer copy = root->copy();
  root->flush();
  EXPECT_EQ(copy->count(), 1U);
}

// --- A round trip ---

class RandomTree {
 public:
  explicit RandomTree(unsigned seed) : random_(seed) {}

  Node::Pointer make() {
    const Node::Pointer root = node();
    root->setPath("/root");
    std::vector<Node::Pointer> nodes = {root};
    const int count = number(1, 1000);
    while (static_cast<int>(nodes.size()) < count) {
      const Node::Pointer child = node();
      nodes[static_cast<std::size_t>(number(0, static_cast<int>(nodes.size()) - 1))]->addChild(child);
      nodes.push_back(child);
    }
    root->setSelected(number(0, 1));
    return root;
  }

 private:
  int number(int least, int most) { return std::uniform_int_distribution(least, most)(random_); }
  bool coin() { return number(0, 1) == 1; }

  Node::Pointer node() {
    const char* names[] = {"a", "", "/", "..", "h\xC3\xA4h", "\xF0\x9F\x98\x80", "b/c", "Contents"};
    const Node::Pointer node = Node::create(names[number(0, 7)], coin());
    if (coin()) {
      node->setDisplayName(names[number(0, 7)]);
      node->setBackupDate(Date{static_cast<double>(number(-1000000, 1000000))});
    }
    if (coin()) {
      node->setVersion(number(-5, 5));
      node->setState("Waiting");
    }
    node->setBackupFlags(static_cast<std::uint32_t>(random_()));
    node->setSimpleFlags(static_cast<std::uint32_t>(random_()));
    node->setBackupColor(number(-1, 6));
    node->setTotalCount(static_cast<std::uint32_t>(random_()));
    node->setSizeValue(std::uint64_t{random_()} << number(0, 32));
    node->setUid(static_cast<std::uint32_t>(random_()));
    node->setGid(static_cast<std::uint32_t>(random_()));
    node->setInPolicy(coin());
    node->setPurgeDate(Date{1});
    return node;
  }

  std::mt19937 random_;
};

void expectSameButWhatIsLost(Node& before, Node& after) {
  ASSERT_TRUE(before.dictionary().identical(after.dictionary()))
      << before.dictionary().description() << after.dictionary().description();
  EXPECT_EQ(after.selected(), 0);
  EXPECT_FALSE(after.inPolicy());
  EXPECT_TRUE(after.purgeDate().isAbsent());
  ASSERT_EQ(before.children() == nullptr, after.children() == nullptr);
  ASSERT_EQ(before.count(), after.count());
  for (std::size_t i = 0; i < before.count(); ++i) {
    EXPECT_EQ((*after.children())[i].parent().get(), &after);
    ASSERT_NO_FATAL_FAILURE(expectSameButWhatIsLost((*before.children())[i], (*after.children())[i]));
  }
}

TEST(FileNodeTree, ADictionaryCarriesWhatItShouldAndLosesTheRest) {
  for (unsigned seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE(seed);
    const Node::Pointer before = RandomTree(seed).make();
    std::string error;
    const auto bytes = PropertyListSerialization::dataFromPropertyList(
        before->recursiveDictionary(), PropertyListSerialization::Format::binary, &error);
    if (!bytes) {
      EXPECT_NE(error.find("deep"), std::string::npos) << error;
      continue;
    }
    const Node::Pointer after = Node::create();
    after->initWithDictionary(PropertyListSerialization::propertyListFromData(*bytes, &error));
    ASSERT_NO_FATAL_FAILURE(expectSameButWhatIsLost(*before, *after));
  }
}
}  // namespace
}  // namespace keldane
