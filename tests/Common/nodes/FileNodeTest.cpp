#include "Common/nodes/FileNode.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/objects/Exceptions.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using Node = KeldaneFileNode;
using testing::TemporaryFolder;

Node::Pointer nodeNamed(const char* name) {
  const Node::Pointer node = Node::create();
  node->setFileName(name);
  return node;
}

std::string backupFlags(std::uint32_t flags) {
  const Node::Pointer node = Node::create();
  node->setBackupFlags(flags);
  return node->backupFlagsString();
}

std::string simpleFlags(std::uint32_t flags) {
  const Node::Pointer node = Node::create();
  node->setSimpleFlags(flags);
  return node->simpleFlagsString();
}

TEST(FileNode, BackupFlagsPrintByName) {
  EXPECT_EQ(backupFlags(0), "0x00000000 : Backup_Undefined");
  EXPECT_EQ(backupFlags(0x35), "0x00000035 : Backup_Priority (5) Backup_Backup Backup_BackedUp ");
  EXPECT_EQ(backupFlags(0x4000), "0x00004000 : Backup_Priority (0) ") << "an unnamed bit adds nothing";
  EXPECT_EQ(backupFlags(0x28001FC0),
            "0x28001fc0 : Backup_Priority (0) Backup_Exclude Backup_Include Backup_Extra Backup_System "
            "Backup_Not_Active "
            "Backup_Folder Backup_Missing Backup_Folder_Include Backup_Excluded_Visible ");
}

TEST(FileNode, OneBitPrintsTwoNames) {
  EXPECT_EQ(backupFlags(0x00020000),
            "0x00020000 : Backup_Priority (0) Backup_No_Folder Backup_Folder_Exclude ");
}

TEST(FileNode, SimpleFlagsPrintByName) {
  EXPECT_EQ(simpleFlags(0), "0x00000000 : Backup_Simple_None");
  EXPECT_EQ(
      simpleFlags(0x00060002),
      "0x00060002 : Backup_Simple_Enabled Backup_Simple_Priority_Enabled Backup_Simple_Priority_Visible ");
  EXPECT_EQ(simpleFlags(0x00010705),
            "0x00010705 : Backup_Simple_Checked Backup_Simple_Grayed Backup_Simple_Type_Checked "
            "Backup_Simple_Type_Enabled "
            "Backup_Simple_Type_Visible Backup_Simple_Priority_Checked ");
}

TEST(FileNode, ColoursHaveNames) {
  const char* names[] = {"Backup_Color_Undefined", "Backup_Color_None", "Backup_Color_Green",
                         "Backup_Color_Yellow",    "Backup_Color_Gray", "Backup_Color_Blue"};
  const Node::Pointer node = Node::create();
  for (std::int32_t color = 0; color < 6; ++color) {
    node->setBackupColor(color);
    EXPECT_EQ(node->backupColorString(), PropertyList(names[color]));
  }
  for (const std::int32_t color : {6, -1}) {
    node->setBackupColor(color);
    EXPECT_TRUE(node->backupColorString().isAbsent());
  }
}

TEST(FileNode, PredicatesReadTheirBits) {
  const Node::Pointer node = Node::create();
  const std::pair<std::uint32_t, bool (Node::*)() const> predicates[] = {{0x10, &Node::isBackup},
                                                                         {0x40, &Node::isExcluded},
                                                                         {0x400, &Node::isNotActive},
                                                                         {0x800, &Node::isFolder},
                                                                         {0x1000, &Node::isMissing}};
  for (const auto& [bit, predicate] : predicates) {
    node->setBackupFlags(bit);
    EXPECT_TRUE((*node.*predicate)()) << bit;
    node->setBackupFlags(~bit);
    EXPECT_FALSE((*node.*predicate)()) << bit;
  }
  node->setBackupFlags(0x85F);
  EXPECT_FALSE(node->isDirectory()) << "the node's own word";
  EXPECT_EQ(node->backupPriority(), 15U);
}

TEST(FileNode, TheNameToShowIsTheFileNameUnlessThereIsAnother) {
  const Node::Pointer node = nodeNamed("a.txt");
  EXPECT_EQ(node->displayName().string(), "a.txt");
  node->setDisplayName("A");
  EXPECT_EQ(node->displayName().string(), "A");
}

TEST(FileNode, WithoutADateItWasNeverBackedUp) {
  const Node::Pointer node = Node::create();
  EXPECT_EQ(node->backupDateString(), "Never");
  node->setBackupDate(Date{0});
  EXPECT_EQ(node->backupDateString(), "NSTimeDateFormatString")
      << "the format is a key without a conversion in it";
}

TEST(FileNode, SizesAddUp) {
  const Node::Pointer folder = nodeNamed("f");
  folder->setSizeValue(10);
  for (const std::uint64_t size : {5U, 7U}) {
    const Node::Pointer child = nodeNamed("c");
    child->setSize(PropertyList(size));
    folder->addChild(child);
  }
  EXPECT_EQ(folder->sizeValue(), 22U);
  EXPECT_EQ(folder->size(), PropertyList(22));
  EXPECT_NE(folder->description().find("size: 10\n"), std::string::npos);
  EXPECT_EQ(folder->dictionary()["size"], PropertyList(10));
  EXPECT_EQ(folder->count(), 2U);
}

TEST(FileNode, ABundleHasContents) {
  const Node::Pointer folder = nodeNamed("f");
  EXPECT_FALSE(folder->isBundle());
  folder->addChild(nodeNamed("contents"));
  EXPECT_FALSE(folder->isBundle());
  folder->addChild(nodeNamed("Contents"));
  folder->addChild(nodeNamed("x"));
  EXPECT_TRUE(folder->isBundle());
}

TEST(FileNode, DescribesItself) {
  const Node::Pointer node = nodeNamed("a.txt");
  node->setBackupFlags(0x10);
  node->setVersion(PropertyList(3));
  node->setTotalCount(2);
  const std::string text = node->description();
  EXPECT_EQ(text.substr(0, 20), "<KeldaneFileNode: 0x");
  EXPECT_EQ(
      text.substr(text.find('\n')),
      "\n    fileName: a.txt\n    displayName: (null)\n    isDirectory: NO\n    selected: 0\n"
      "    backupFlags: 0x00000010 : Backup_Priority (0) Backup_Backup \n    simpleFlags: 0x00000000 : "
      "Backup_Simple_None\n"
      "    backupColor: Backup_Color_Undefined\n    backupDate: (null)\n    state: (null)\n    version: 3\n"
      "    purgeDate: (null)\n    fileCount: 2\n    size: 0\n");
}

TEST(FileNode, AccountsHaveNamesOrNumbers) {
  const Node::Pointer node = Node::create();
  EXPECT_EQ(node->uidString(), "root");
  EXPECT_EQ(node->gidString(), "root");
  node->setUid(4123456789U);
  node->setGid(4123456789U);
  EXPECT_EQ(node->uidString(), "4123456789");
  EXPECT_EQ(node->gidString(), "4123456789");
}

TEST(FileNode, APathIsStoredOrDerivedFromTheParent) {
  const Node::Pointer root = nodeNamed("r");
  EXPECT_EQ(root->path(), std::nullopt);
  const Node::Pointer child = nodeNamed("c");
  root->addChild(child);
  EXPECT_EQ(child->path(), std::nullopt);
  root->setPath("/r");
  EXPECT_EQ(child->path(), "/r/c");
  EXPECT_EQ(child->root(), root);
  EXPECT_EQ(child->parent(), root);
}

TEST(FileNode, ThePathOfAChildCannotBeSet) {
  const Node::Pointer root = nodeNamed("r");
  const Node::Pointer child = nodeNamed("c");
  root->setPath("/r");
  root->addChild(child);
  try {
    child->setPath("/elsewhere");
    FAIL();
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.description(), "You cannot set the path string of a node in a real hierarchy");
    EXPECT_EQ(failure.file(), "Common/FileNode");
    EXPECT_EQ(failure.line(), 1073);
  }
  EXPECT_EQ(child->path(), "/r/c");
}

TEST(FileNode, DeepTreesAreFreedMeasuredAndWrittenWithoutTheStack) {
  const Node::Pointer root = nodeNamed("r");
  root->setPath("/");
  Node::Pointer deepest = root;
  for (int i = 0; i < 100000; ++i) {
    const Node::Pointer child = nodeNamed("d");
    child->setSizeValue(1);
    deepest->addChild(child);
    deepest = child;
  }
  EXPECT_EQ(root->sizeValue(), 100000U);
  EXPECT_EQ(deepest->root(), root);
  EXPECT_EQ(root->recursiveDictionary()["children"].count(), 1U);
}

TEST(FileNode, ARestoreBrowserHidesWhatCannotBeReadHere) {
  const TemporaryFolder folder;
  const auto shows = [&](const std::string& path, std::uint32_t flags) {
    const Node::Pointer node = Node::create();
    node->setPath(path);
    node->setBackupFlags(flags);
    return node->showInRestoreBrowser();
  };
  const std::string file = folder.write("a", "");
  EXPECT_TRUE(shows(file, 0x10));
  EXPECT_FALSE(shows(file, 0));
  EXPECT_TRUE(shows(folder / "none", 0x800)) << "an active folder that is not here";
  EXPECT_FALSE(shows(folder / "none", 0xC00)) << "not active";
  EXPECT_TRUE(shows(folder / "none", 0x10));
}

TEST(FileNode, ARestoreBrowserHidesWhatThisUserCannotRead) {
  const TemporaryFolder folder;
  const std::string file = folder.write("a", "");
  chmod(folder.path().c_str(), 0711);
  chmod(file.c_str(), 0);
  const pid_t child = fork();
  if (child == 0) {  // the tests may run as root, who can read everything
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
      _exit(2);
    }
    const Node::Pointer node = Node::create();
    node->setPath(file);
    node->setBackupFlags(0x10);
    const bool isHidden = !node->showInRestoreBrowser();
    node->setPath(file + "none");
    _exit(isHidden && node->showInRestoreBrowser() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// --- Dictionaries ---

TEST(FileNodeDictionary, ANameAloneMakesANode) {
  const Node::Pointer node = Node::create();
  node->initWithDictionary(PropertyList::dictionary({{"fileName", "a"}}));
  EXPECT_EQ(node->fileName().string(), "a");
  EXPECT_EQ(node->displayName().string(), "a");
  EXPECT_FALSE(node->isDirectory());
  EXPECT_EQ(node->sizeValue(), 0U);
  EXPECT_EQ(node->backupDateString(), "Never");
  EXPECT_EQ(node->children(), nullptr);
}

TEST(FileNodeDictionary, ANameAloneMakesEveryNumberZero) {
  const Node::Pointer node = Node::create();
  node->setIsDirectory(true);
  node->setBackupFlags(1);
  node->setSimpleFlags(2);
  node->setBackupColor(3);
  node->setTotalCount(4);
  node->setUid(5);
  node->setGid(6);
  node->setSizeValue(7);
  node->initWithDictionary(PropertyList::dictionary({{"fileName", "a"}}));
  EXPECT_FALSE(node->isDirectory());
  EXPECT_EQ(node->backupFlags(), 0U);
  EXPECT_EQ(node->simpleFlags(), 0U);
  EXPECT_EQ(node->backupColor(), 0);
  EXPECT_EQ(node->totalCount(), 0U);
  EXPECT_EQ(node->uid(), 0U);
  EXPECT_EQ(node->gid(), 0U);
  EXPECT_EQ(node->sizeValue(), 0U);
}

TEST(FileNodeDictionary, ReadingAgainForgetsWhatNoDictionaryCarries) {
  const Node::Pointer node = Node::create();
  node->setPurgeDate(Date{1});
  node->setImage(std::make_shared<int>(1));
  node->initWithDictionary(PropertyList::dictionary({{"fileName", "a"}}));
  EXPECT_TRUE(node->purgeDate().isAbsent());
  EXPECT_EQ(node->image(), nullptr);
}

TEST(FileNodeDictionary, AnEmptyNodeHasEightKeys) {
  const PropertyList dictionary = Node::create()->dictionary();
  EXPECT_EQ(dictionary.count(), 8U);
  EXPECT_TRUE(dictionary["isDirectory"].identical(false));
  for (const char* key : {"size", "backupFlags", "simpleFlags", "backupColor", "totalCount", "uid", "gid"}) {
    EXPECT_TRUE(dictionary[key].identical(0)) << key;
  }
}

TEST(FileNodeDictionary, AllOnesStayAllOnes) {
  const Node::Pointer node = Node::create();
  node->initWithDictionary(
      PropertyList::dictionary({{"backupFlags", 4294967295U}, {"backupColor", 4294967295U}}));
  EXPECT_EQ(node->backupFlags(), 0xFFFFFFFFU);
  EXPECT_EQ(node->backupColor(), -1);
  EXPECT_EQ(node->dictionary()["backupColor"].longLongValue(), 4294967295);
}

TEST(FileNodeDictionary, AChildListThatWasEmptiedIsWritten) {
  const Node::Pointer node = Node::create();
  EXPECT_TRUE(node->recursiveDictionary()["children"].isAbsent());
  node->initWithDictionary(PropertyList::dictionary({{"children", PropertyList::array({})}}));
  EXPECT_TRUE(node->recursiveDictionary()["children"].isArray());
  EXPECT_EQ(node->recursiveDictionary()["children"].count(), 0U);
  const Node::Pointer parent = nodeNamed("f");
  const Node::Pointer child = nodeNamed("c");
  parent->addChild(child);
  parent->removeChild(child);
  EXPECT_TRUE(parent->recursiveDictionary()["children"].isArray());
  EXPECT_EQ(parent->recursiveDictionary()["children"].count(), 0U);
}

PropertyList sample() {
  return PropertyList::dictionary(
      {{"fileName", "f"},
       {"displayName", "F"},
       {"isDirectory", true},
       {"backupDate", Date{1000}},
       {"version", 3},
       {"path", "/f"},
       {"state", "Backed up"},
       {"size", std::uint64_t{1} << 40},
       {"backupFlags", 0x830U},
       {"simpleFlags", 3U},
       {"backupColor", 2U},
       {"totalCount", 9U},
       {"uid", 501U},
       {"gid", 20U},
       {"children", PropertyList::array({PropertyList::dictionary({{"fileName", "c"},
                                                                   {"isDirectory", false},
                                                                   {"size", 5U},
                                                                   {"backupFlags", 0U},
                                                                   {"simpleFlags", 0U},
                                                                   {"backupColor", 0U},
                                                                   {"totalCount", 0U},
                                                                   {"uid", 0U},
                                                                   {"gid", 0U}})})}});
}

TEST(FileNodeDictionary, ARoundTripKeepsTheWholeSubtree) {
  const Node::Pointer node = Node::create();
  node->setInPolicy(true);
  node->initWithDictionary(sample());
  EXPECT_TRUE(node->inPolicy()) << "nothing that a dictionary carries";
  EXPECT_TRUE(node->recursiveDictionary().identical(sample())) << node->recursiveDictionary().description();
  std::string error;
  const auto bytes = PropertyListSerialization::dataFromPropertyList(
      node->recursiveDictionary(), PropertyListSerialization::Format::binary, &error);
  const Node::Pointer again = Node::create();
  again->initWithDictionary(PropertyListSerialization::propertyListFromData(*bytes, &error));
  EXPECT_TRUE(again->recursiveDictionary().identical(sample()));
  EXPECT_FALSE(again->inPolicy());
  EXPECT_EQ(again->childWithName("c")->path(), "/f/c");
}

TEST(FileNodeDictionary, ReadingAgainOverwritesButKeepsAnUntouchedChildList) {
  const Node::Pointer node = Node::create();
  node->initWithDictionary(sample());
  node->initWithDictionary(PropertyList::dictionary({{"fileName", "g"}}));
  EXPECT_EQ(node->fileName().string(), "g");
  EXPECT_TRUE(node->state().isAbsent());
  EXPECT_EQ(node->path(), std::nullopt);
  EXPECT_EQ(node->count(), 1U);
}

TEST(FileNodeDictionary, ValuesOfOtherKindsDoNoHarm) {
  const Node::Pointer node = Node::create();
  node->initWithDictionary(
      PropertyList::dictionary({{"fileName", 5},
                                {"isDirectory", "YES"},
                                {"path", PropertyList::array({})},
                                {"state", 7},
                                {"size", "many"},
                                {"backupFlags", 2.9},
                                {"children", PropertyList::array({"no dictionary", 5})}}));
  EXPECT_EQ(node->fileName().string(), "");
  EXPECT_EQ(node->state().description(), "7");
  EXPECT_EQ(node->backupFlags(), 2U);
  EXPECT_EQ(node->path(), std::nullopt);
  EXPECT_EQ(node->count(), 2U);
  node->initWithDictionary("no dictionary");
  node->initWithDictionary(PropertyList::dictionary({{"children", 5}}));
  node->description();
}

TEST(FileNodeDictionary, AChildIsReadBeforeItIsAttached) {
  struct Recorder final : KeldaneFileNode {
    using KeldaneFileNode::KeldaneFileNode;
    static std::shared_ptr<Recorder> create() { return make<Recorder>(); }
    Link newOfSameClass() const override {
      const auto child = make<Recorder>();
      child->attached = attached;
      return child;
    }
    void attach(const Link& child) override {
      attached->push_back(std::string(child->fileName().string()));
      KeldaneFileNode::attach(child);
    }
    std::shared_ptr<std::vector<std::string>> attached = std::make_shared<std::vector<std::string>>();
  };
  const auto named = [](const char* name, PropertyList::Array children) {
    return PropertyList::dictionary(
        {{"fileName", name}, {"children", PropertyList::array(std::move(children))}});
  };
  const auto node = Recorder::create();
  node->initWithDictionary(named("/", {named("a", {named("b", {}), named("c", {})}), named("d", {})}));
  EXPECT_EQ(*node->attached, (std::vector<std::string>{"b", "c", "a", "d"}));
}

TEST(FileNodeDictionary, ChildrenMayBeNestedDeeply) {
  PropertyList value = PropertyList::dictionary({{"fileName", "leaf"}});
  for (int i = 0; i < 50000; ++i) {
    value = PropertyList::dictionary({{"fileName", "d"}, {"children", PropertyList::array({value})}});
  }
  const Node::Pointer node = Node::create();
  node->initWithDictionary(value);
  EXPECT_EQ(node->count(), 1U);
}

TEST(FileNodeDictionary, ListsOfDictionariesLeaveOutWhatIsNone) {
  const auto nodes =
      Node::fileNodesForDictionaries(PropertyList::array({PropertyList::dictionary({{"fileName", "a"}}), "no",
                                                          5, PropertyList::dictionary({{"fileName", "b"}})}));
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[1]->fileName().string(), "b");
}

TEST(FileNodeDictionary, WithoutADaemonThereIsNoNode) {
  EXPECT_EQ(Node::fileNodeForPath("/x", nullptr), nullptr);
  EXPECT_EQ(Node::fileNodeForPath("/x", true, nullptr), nullptr);
  EXPECT_TRUE(Node::fileNodesForPaths({"/x"}, nullptr).empty());
}

TEST(FileNodeDictionary, ANodeFromTheFileSystem) {
  const TemporaryFolder folder;
  const Node::Pointer file = Node::fileNodeForPath(folder.write("a.txt", "12345"));
  EXPECT_EQ(file->path(), folder / "a.txt");
  EXPECT_EQ(file->fileName().string(), "a.txt");
  EXPECT_EQ(file->sizeValue(), 5U);
  EXPECT_EQ(file->displayName().string(), "a.txt");
  EXPECT_TRUE(file->dictionary()["displayName"].isString()) << "stored, not only derived";
  ASSERT_EQ(lchown((folder / "a.txt").c_str(), static_cast<uid_t>(-1), geteuid() == 0 ? 4321 : getgid()), 0);
  const Node::Pointer owned = Node::fileNodeForPath(folder / "a.txt");
  EXPECT_EQ(owned->uid(), getuid());
  EXPECT_EQ(owned->gid(), geteuid() == 0 ? 4321 : getgid());
  EXPECT_FALSE(file->isDirectory());
  std::filesystem::create_symlink("a.txt", folder / "link");
  const Node::Pointer link = Node::fileNodeForPath(folder / "link");
  EXPECT_EQ(link->fileName().string(), "link");
  EXPECT_EQ(link->gid(), getgid()) << "the link's, not the target's";
  std::filesystem::create_symlink(".", folder / "here");
  const Node::Pointer here = Node::fileNodeForPath(folder / "here");
  EXPECT_TRUE(here->isDirectory()) << "as the target is";
  EXPECT_EQ(here->sizeValue(), 1U) << "the length of the link's own text";
  EXPECT_TRUE(Node::fileNodeForPath(folder.path())->isDirectory());
  const Node::Pointer none = Node::fileNodeForPath(folder / "none");
  EXPECT_EQ(none->path(), folder / "none");
  EXPECT_EQ(none->fileName().string(), "none");
  EXPECT_FALSE(none->isDirectory());
  EXPECT_EQ(none->sizeValue(), 0U);
}

}  // namespace
}  // namespace keldane
