#include <gtest/gtest.h>

#include "platform/objects/Exceptions.h"
#include "tests/Common/nodes/FileNodes.h"

namespace keldane {
namespace {

using testing::folder;
using testing::named;
using testing::Names;
using testing::namesOf;
using testing::Node;
using testing::rootOf;

TEST(FileNodeSorting, TheFirstKeyDecidesAndLaterOnesBreakTies) {
  const auto sized = [](const char* name, std::uint64_t size) {
    const Node::Pointer node = named(name);
    node->setSizeValue(size);
    return node;
  };
  const Node::Pointer inner = folder("inner", {named("z"), named("y")});
  const Node::Pointer root = rootOf({sized("b", 1), sized("c", 2), inner, sized("a", 1)});
  root->sortUsingDescriptors({{"size", false}, {"fileName"}});
  EXPECT_EQ(namesOf(root->children()), (Names{"c", "a", "b", "inner"}));
  EXPECT_EQ(namesOf(inner->children()), (Names{"y", "z"})) << "all the way down";
  root->sortUsingDescriptors({{"isDirectory", false}, {"fileName", false}});
  EXPECT_EQ(namesOf(root->children()), (Names{"inner", "c", "b", "a"}));
  root->sortUsingDescriptors({{"fileName", true, [](const PropertyList& one, const PropertyList& other) {
                                 return static_cast<int>(one.string().size()) -
                                        static_cast<int>(other.string().size());
                               }}});
  EXPECT_EQ(namesOf(root->children()), (Names{"c", "b", "a", "inner"})) << "equal ones stay in order";
  root->sortUsingDescriptors({});
  named("a")->sortUsingDescriptors({{"fileName"}});
}

TEST(FileNodeSorting, EveryAccessorIsAKeyAndNothingElse) {
  const Node::Pointer node = rootOf({});
  for (const char* key : {"fileName",
                          "displayName",
                          "isDirectory",
                          "selected",
                          "backupFlags",
                          "backupPriority",
                          "simpleFlags",
                          "backupColor",
                          "backupColorString",
                          "totalCount",
                          "count",
                          "size",
                          "sizeValue",
                          "path",
                          "uid",
                          "uidString",
                          "gid",
                          "gidString",
                          "inPolicy",
                          "inPolicyValue",
                          "isBackup",
                          "isExcluded",
                          "isNotActive",
                          "isFolder",
                          "isMissing",
                          "isBundle",
                          "showInRestoreBrowser",
                          "backupFlagsString",
                          "simpleFlagsString",
                          "backupDateString",
                          "description"}) {
    EXPECT_FALSE(node->valueForKey(key).isAbsent()) << key;
  }
  for (const char* key : {"backupDate", "version", "purgeDate", "state"}) {
    EXPECT_TRUE(node->valueForKey(key).isAbsent()) << key;
  }
  for (const char* key : {"colour", "parent", "children", "image"}) {
    EXPECT_THROW(node->valueForKey(key), InvalidArgument) << key;
  }
  node->setBackupFlags(0x10 | 0x800);
  EXPECT_TRUE(node->valueForKey("isBackup").boolValue() && node->valueForKey("isFolder").boolValue());
  EXPECT_FALSE(node->valueForKey("isMissing").boolValue() || node->valueForKey("isBundle").boolValue());
  EXPECT_EQ(node->valueForKey("description").string(), node->description());
}

TEST(FileNodeSorting, AnUnknownKeyIsRefusedWhereThereIsSomethingToSort) {
  const Node::Pointer childless = named("a");
  childless->sortUsingDescriptors({{"colour"}});
  EXPECT_THROW(rootOf({named("a")})->sortUsingDescriptors({{"colour"}}), InvalidArgument);
}

}  // namespace
}  // namespace keldane
