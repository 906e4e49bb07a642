#include "clients/core/FolderTree.h"

#include <gtest/gtest.h>

#include <climits>

#include "Common/calls/KeldProxy.h"
#include "client-state/BackupState.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane {
namespace {

class FolderTreeTest : public ::testing::Test {
 protected:
  FolderTreeTest() {
    daemon_.answer("childrenDictionariesForPath:", [this](const PropertyList::Array& arguments) {
      const std::string path(arguments[0].string());
      asked_.push_back(path);
      return answers_[path];
    });
    state_.setBundle(bundle_.bundle());
    state_.disableConnectTimer();
    state_.onBegin();
  }
  ~FolderTreeTest() override { state_.onEnd(); }

  static PropertyList entry(const std::string& path, bool isFolder) {
    return PropertyList::dictionary({{"fileName", path.substr(path.rfind('/') + 1)},
                                     {"path", path},
                                     {"isDirectory", PropertyList::boolean(isFolder)}});
  }
  void has(const std::string& folder, const std::vector<std::string>& folders,
           const std::vector<std::string>& files) {
    PropertyList::Array entries;
    for (const std::string& name : folders) {
      entries.push_back(entry(folder + '/' + name, true));
    }
    for (const std::string& name : files) {
      entries.push_back(entry(folder + '/' + name, false));
    }
    answers_[folder] = PropertyList::array(entries);
  }
  static std::vector<std::string> namesIn(const KeldaneFileNode::Pointer& folder) {
    std::vector<std::string> names;
    if (const KeldaneFileNode::ChildList* children = folder->children()) {
      for (KeldaneFileNode& child : *children) {
        names.emplace_back(child.fileName().string());
      }
    }
    return names;
  }

  testing::ClientBundle bundle_;
  testing::FakeDaemon daemon_{bundle_.daemonPath()};
  BackupState state_;
  std::map<std::string, PropertyList> answers_;
  std::vector<std::string> asked_;
};

TEST_F(FolderTreeTest, AFolderAsksWhenItIsLookedAt) {
  has("/a", {"d"}, {"f"});
  const KeldaneFileNodeProxy::Pointer folder = folderAt("/a", state_.proxy());
  EXPECT_TRUE(asked_.empty());
  EXPECT_EQ(namesIn(folder), (std::vector<std::string>{"d", "f"}));
  EXPECT_EQ(asked_, (std::vector<std::string>{"/a"}));
  EXPECT_EQ(folder->fileName(), PropertyList("a"));
  EXPECT_TRUE(folder->isDirectory());
}

TEST_F(FolderTreeTest, ANodeGetsItsChildrenOnce) {
  has("/a", {}, {"f"});
  const KeldaneFileNode::Pointer folder = KeldaneFileNode::create("a", true);
  folder->setPath("/a");
  loadChildren(folder, state_.proxy());
  loadChildren(folder, state_.proxy());
  EXPECT_EQ(namesIn(folder), (std::vector<std::string>{"f"}));
  EXPECT_EQ(asked_.size(), 1U);
  EXPECT_EQ((*folder->children())[0].parent(), folder);
}

TEST_F(FolderTreeTest, AFileAndANodeWithoutAPathAreNotAskedFor) {
  const KeldaneFileNode::Pointer file = KeldaneFileNode::create("f", false);
  file->setPath("/f");
  loadChildren(file, state_.proxy());
  loadChildren(KeldaneFileNode::create("d", true), state_.proxy());
  EXPECT_TRUE(asked_.empty());
}

TEST_F(FolderTreeTest, WithoutADaemonAFolderStaysWithoutChildren) {
  const KeldaneFileNode::Pointer folder = KeldaneFileNode::create("a", true);
  folder->setPath("/a");
  loadChildren(folder, nullptr);
  EXPECT_EQ(folder->children(), nullptr);
}

TEST_F(FolderTreeTest, EverythingBelowIsLoadedAndEachQuestionTold) {
  has("/a", {"b", "c"}, {"f"});
  has("/a/b", {"d"}, {});
  has("/a/b/d", {}, {"g"});
  int questions = 0;
  const KeldaneFileNodeProxy::Pointer folder = folderAt("/a", state_.proxy());
  loadAll(folder, state_.proxy(), [&] { ++questions; });
  EXPECT_EQ(questions, 4);
  EXPECT_EQ(asked_.size(), 4U);
  EXPECT_TRUE(folder->nodeAtPath("a/b/d/g"));
}

TEST_F(FolderTreeTest, AnAnswerThatLeadsRoundInACircleEnds) {
  answers_["/a"] = PropertyList::array({entry("/a", true), entry("/", true), entry("/b", true)});
  answers_["/"] = answers_["/a"];
  loadAll(folderAt("/a", state_.proxy()), state_.proxy(), [] {});
  EXPECT_EQ(asked_, (std::vector<std::string>{"/a"}));
}

TEST_F(FolderTreeTest, AnAnswerThatLeadsDownWithoutEndEndsAtTheLongestPath) {
  const std::string name(100, 'd');
  daemon_.answer("childrenDictionariesForPath:", [&](const PropertyList::Array& arguments) {
    return PropertyList::array({entry(std::string(arguments[0].string()) + '/' + name, true)});
  });
  int questions = 0;
  loadAll(folderAt("/a", state_.proxy()), state_.proxy(), [&] { ++questions; });
  EXPECT_EQ(questions, 1 + (PATH_MAX - 1 - 2) / 101);
}

TEST_F(FolderTreeTest, APathIsLoadedWithAllBesideIt) {
  has("/a", {"b", "c"}, {"f"});
  has("/a/b", {}, {"g", "h"});
  const KeldaneFileNodeProxy::Pointer folder = folderAt("/a", state_.proxy());
  const KeldaneFileNode::Pointer node = loadPath(folder, "/a/b/h", state_.proxy());
  ASSERT_TRUE(node);
  EXPECT_EQ(node->path(), "/a/b/h");
  EXPECT_EQ(namesIn(folder), (std::vector<std::string>{"b", "c", "f"}));
  EXPECT_EQ(asked_, (std::vector<std::string>{"/a", "/a/b"}));
  EXPECT_EQ(loadPath(folder, "/a/b/i", state_.proxy()), nullptr);
  EXPECT_EQ(loadPath(folder, "/a/f/x", state_.proxy()), nullptr);
  EXPECT_EQ(loadPath(folder, "/a", state_.proxy()), folder);
}

}  // namespace
}  // namespace keldane
