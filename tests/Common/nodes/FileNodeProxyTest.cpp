#include "Common/nodes/FileNodeProxy.h"

#include <gtest/gtest.h>

#include "Common/calls/KeldProxy.h"
#include "log/KeldaneLog.h"
#include "platform/objects/Exceptions.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane {
namespace {

using testing::DaemonCall;
using testing::FakeDaemon;
using testing::LogCapture;
using testing::TemporaryFolder;

PropertyList entry(const char* name, bool folder = true) {
  return PropertyList::dictionary({{"fileName", name}, {"isDirectory", folder}});
}

class FileNodeProxyTest : public ::testing::Test {
 protected:
  FileNodeProxyTest() {
    socket_->setSocketDelegate(delegate_);
    proxy_->setProtocol(&KeldaneDaemonProtocol);
    EXPECT_TRUE(socket_->connectToPath(folder_ / "socket"));
    proxy_->setSocket(socket_);
    root_->setFileName("/");
    root_->setIsDirectory(true);
    root_->setPath("/");
    root_->setProxy(proxy_);
  }
  ~FileNodeProxyTest() override {
    gLoggingEnabled = false;
    proxy_->close();
    socket_->close();
  }

  void daemonHas(const PropertyList::Array& children) {
    daemon_.answer("childrenDictionariesForPath:", PropertyList::array(children));
  }
  std::vector<std::string> asked(const std::string& selector) const {
    std::vector<std::string> paths;
    for (const DaemonCall& call : daemon_.calls()) {
      if (call.selector == selector) {
        paths.emplace_back(call.arguments.at(0).string());
      }
    }
    return paths;
  }

  using Paths = std::vector<std::string>;
  TemporaryFolder folder_;
  FakeDaemon daemon_{folder_ / "socket"};
  std::shared_ptr<KeldSocketDelegate> delegate_ = std::make_shared<KeldSocketDelegate>();
  std::shared_ptr<KeldaneSocket> socket_ = KeldaneSocket::create();
  std::shared_ptr<KeldaneProxy> proxy_ = KeldaneProxy::create();
  KeldaneFileNodeProxy::Pointer root_ = KeldaneFileNodeProxy::create();
};

TEST_F(FileNodeProxyTest, ChildrenAreAskedForOnceUntilTheNextFlush) {
  daemonHas({entry("Users"), "no dictionary", entry("Applications")});
  ASSERT_NE(root_->children(), nullptr);
  EXPECT_EQ(root_->count(), 2U);
  EXPECT_EQ((*root_->children())[0].parent(), root_);
  EXPECT_EQ(dynamic_cast<KeldaneFileNodeProxy*>(&(*root_->children())[0]), nullptr) << "plain nodes";
  EXPECT_EQ(asked("childrenDictionariesForPath:"), Paths{"/"});
  root_->flush();
  EXPECT_EQ(root_->count(), 2U);
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 2U);
}

TEST_F(FileNodeProxyTest, ManyPathsHaveTheNodesThatTheDaemonKnows) {
  daemon_.answer("dictionaryForPath:withDirSizes:", entry("a.txt"));
  const auto nodes = KeldaneFileNode::fileNodesForPaths({"/a.txt", "/b.txt"}, proxy_.get());
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[1]->fileName().string(), "a.txt") << "as the daemon calls it";
  EXPECT_EQ(asked("dictionaryForPath:withDirSizes:"), (Paths{"/a.txt", "/b.txt"}));
}

TEST_F(FileNodeProxyTest, OfManyPathsThoseWithoutAnAnswerAreLeftOut) {
  daemon_.answer("dictionaryForPath:withDirSizes:", [](const PropertyList::Array& arguments) {
    return arguments.at(0).string() == "/b" ? PropertyList() : entry("x");
  });
  const auto nodes = KeldaneFileNode::fileNodesForPaths({"/a", "/b", "/c"}, proxy_.get());
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[0]->path(), "/a");
  EXPECT_EQ(nodes[1]->path(), "/c");
}

TEST_F(FileNodeProxyTest, ThePathThatWasGivenStandsWhateverTheAnswerSays) {
  daemon_.answer("dictionaryForPath:withDirSizes:",
                 PropertyList::dictionary({{"fileName", "x"}, {"path", "/elsewhere"}}));
  EXPECT_EQ(KeldaneFileNode::fileNodeForPath("/a", proxy_.get())->path(), "/a");
}

TEST_F(FileNodeProxyTest, AskedForFolderSizesTheDaemonIsToldSo) {
  daemon_.answer("dictionaryForPath:withDirSizes:", entry("a"));
  KeldaneFileNode::fileNodeForPath("/a", true, proxy_.get());
  KeldaneFileNode::fileNodeForPath("/a", false, proxy_.get());
  KeldaneFileNode::fileNodeForPath("/a", proxy_.get());
  std::vector<std::int32_t> sizes;
  for (const DaemonCall& call : daemon_.calls()) {
    sizes.push_back(call.arguments.at(1).intValue());
  }
  EXPECT_EQ(sizes, (std::vector<std::int32_t>{1, 0, 0}));
}

TEST_F(FileNodeProxyTest, ReadingADictionaryWithChildrenReplacesTheList) {
  const KeldaneFileNode::Pointer mine = KeldaneFileNode::create("mine", false);
  root_->addChild(mine);
  root_->initWithDictionary(PropertyList::dictionary(
      {{"fileName", "/"}, {"path", "/"}, {"children", PropertyList::array({entry("Users")})}}));
  EXPECT_EQ(root_->childWithName("mine"), nullptr);
  const KeldaneFileNode::Pointer users = root_->childWithName("Users");
  ASSERT_NE(users, nullptr);
  const auto* same = dynamic_cast<KeldaneFileNodeProxy*>(users.get());
  ASSERT_NE(same, nullptr) << "of the same class";
  EXPECT_EQ(same->proxy(), proxy_);
}

TEST_F(FileNodeProxyTest, AnAbsentAnswerIsNotAskedForAgainAndKeepsWhatWasThere) {
  EXPECT_EQ(root_->children(), nullptr);
  EXPECT_EQ(root_->children(), nullptr);
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 1U);
  root_->flush();
  root_->addChild(KeldaneFileNode::create("mine", false));
  EXPECT_EQ(root_->count(), 1U);
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 2U);
}

TEST_F(FileNodeProxyTest, AnAnswerReplacesWhatWasAddedBefore) {
  root_->addChild(KeldaneFileNode::create("mine", false));
  daemonHas({entry("Users")});
  EXPECT_NE(root_->childWithName("Users"), nullptr);
  EXPECT_EQ(root_->childWithName("mine"), nullptr);
}

TEST_F(FileNodeProxyTest, WhateverGoesThroughTheChildrenLoadsThem) {
  daemonHas({entry("Contents")});
  EXPECT_TRUE(root_->isBundle());
  root_->flush();
  EXPECT_EQ(root_->recursiveDictionary()["children"].count(), 1U);
  root_->flush();
  root_->setSelected(1);
  EXPECT_EQ(root_->deepestFullSelections().size(), 1U);
  root_->flush();
  EXPECT_TRUE(root_->selectedChildren(false).empty()) << "loaded anew, and not selected";
  EXPECT_EQ(root_->count(), 1U);
  root_->flush();
  EXPECT_EQ(root_->sizeValue(), 0U);
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 4U) << "a size asks only once there is a list";
}

TEST_F(FileNodeProxyTest, ASizeLoadsTheChildrenOnceThereIsAList) {
  daemonHas({PropertyList::dictionary({{"fileName", "a"}, {"size", 5}})});
  root_->addChild(KeldaneFileNode::create("mine", false));
  EXPECT_EQ(root_->sizeValue(), 5U);
}

TEST_F(FileNodeProxyTest, DeselectingLoadsTheChildren) {
  root_->setSelected(0);
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 1U);
}

TEST_F(FileNodeProxyTest, TheDeepestSelectionsLoadTheChildren) {
  EXPECT_TRUE(root_->deepestFullSelections().empty());
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 1U);
}

TEST_F(FileNodeProxyTest, AChangeBelowLoadsTheChildrenThatAreCounted) {
  const KeldaneFileNode::Pointer child = KeldaneFileNode::create("mine", true);
  root_->addChild(child);
  daemonHas({entry("Users")});
  child->setSelected(1);
  EXPECT_EQ(asked("childrenDictionariesForPath:").size(), 1U);
  EXPECT_EQ(root_->selected(), 0) << "of what the daemon has nothing is selected";
}

TEST_F(FileNodeProxyTest, ACopyOfALoadedNodeIsNotLoaded) {
  daemonHas({entry("Users")});
  EXPECT_EQ(root_->count(), 1U);
  const KeldaneFileNode::Pointer copy = root_->copy();
  auto* same = dynamic_cast<KeldaneFileNodeProxy*>(copy.get());
  ASSERT_NE(same, nullptr);
  same->setProxy(proxy_);
  daemonHas({entry("Users"), entry("Applications")});
  same->setPath("/");
  EXPECT_EQ(copy->count(), 2U) << "asked for anew";
  EXPECT_EQ(root_->count(), 1U);
}

TEST_F(FileNodeProxyTest, ACopyHoldsItsOriginalUntilItHasChildrenOfItsOwn) {
  daemonHas({entry("Users")});
  const auto copyOf = [this](KeldaneFileNode& node) {
    const KeldaneFileNode::Pointer copy = node.copy();
    dynamic_cast<KeldaneFileNodeProxy&>(*copy).setProxy(proxy_);
    copy->setPath("/");
    return copy;
  };
  KeldaneFileNode::Pointer original = copyOf(*root_);
  EXPECT_EQ(original->count(), 1U);
  const KeldaneFileNode::Pointer copy = copyOf(*original);
  const std::weak_ptr<KeldaneFileNode> rest = original;
  original.reset();
  EXPECT_FALSE(rest.expired());
  EXPECT_EQ(copy->count(), 1U);
  EXPECT_TRUE(rest.expired());
}

TEST_F(FileNodeProxyTest, AddingAPathMakesWhatIsMissingAndAsksForIt) {
  daemonHas({entry("Users")});
  daemon_.answer("dictionaryForPath:", [](const PropertyList::Array& arguments) {
    return arguments.at(0).string() == "/Users/x"
               ? PropertyList::dictionary({{"fileName", "x"}, {"state", "Backed up"}, {"isDirectory", true}})
               : PropertyList();
  });
  const KeldaneFileNode::Pointer made = root_->addPath("/Users/x/new.txt");
  EXPECT_EQ(made->path(), "/Users/x/new.txt");
  EXPECT_FALSE(made->isDirectory()) << "there is no such folder here";
  EXPECT_EQ(made->parent()->state(), PropertyList("Backed up"));
  EXPECT_EQ(asked("dictionaryForPath:"), (Paths{"/Users/x", "/Users/x/new.txt"}));
  EXPECT_EQ(root_->addPath("/Users/x/new.txt"), made) << "found, not made again";
  EXPECT_EQ(asked("dictionaryForPath:").size(), 2U);
  EXPECT_EQ(root_->addPath("/"), root_);
  EXPECT_EQ(root_->addPath(""), root_);
}

TEST_F(FileNodeProxyTest, TheLocalFileSystemSaysWhetherTheLastOneIsAFolder) {
  const KeldaneFileNode::Pointer made = root_->addPath(folder_.path().string());
  EXPECT_TRUE(made->isDirectory());
  EXPECT_TRUE(made->parent()->isDirectory());
}

TEST_F(FileNodeProxyTest, RefreshingUpdatesWhatIsKnownAndKeepsItsChildren) {
  daemonHas({entry("Users")});
  const KeldaneFileNode::Pointer x = root_->addPath("/Users/x");
  daemon_.answer("dictionaryForPath:",
                 PropertyList::dictionary({{"fileName", "Users"}, {"state", "New"}, {"isDirectory", true}}));
  root_->refreshPath("/Users");
  const KeldaneFileNode::Pointer users = root_->nodeAtPath("/Users");
  EXPECT_EQ(users->state(), PropertyList("New"));
  EXPECT_EQ(users->childWithName("x"), x);
}

TEST_F(FileNodeProxyTest, RefreshingAddsWhatIsNewAndRemovesWhatTheDaemonDoesNotKnow) {
  const LogCapture log;
  gLoggingEnabled = true;
  daemonHas({entry("Users")});
  daemon_.answer("dictionaryForPath:", PropertyList::dictionary({{"fileName", "x"}}));
  root_->refreshPath("/Users/x");
  EXPECT_NE(root_->nodeAtPath("/Users/x"), nullptr);
  daemon_.answer("dictionaryForPath:", PropertyList());
  root_->refreshPath("/Users/x");
  EXPECT_EQ(root_->nodeAtPath("/Users/x"), nullptr);
  EXPECT_TRUE(log.hasPart("refreshPath: /Users/x\n(null)"));
  root_->refreshPath("/Users/x");
}

TEST_F(FileNodeProxyTest, TheRootsNameStandsBeforeThePathThatIsAskedFor) {
  root_->setFileName("backup");
  root_->addChild(KeldaneFileNode::create("Users", true));
  root_->nodeAtPath("/Users")->addChild(KeldaneFileNode::create("x", false));
  root_->refreshPath("/Users/x");
  EXPECT_EQ(asked("dictionaryForPath:"), Paths{"backup/Users/x"});
  EXPECT_EQ(root_->nodeAtPath("/Users/x"), nullptr) << "looked up from the root";
}

TEST_F(FileNodeProxyTest, AChildOfItsKindIsGivenTheProxy) {
  const KeldaneFileNodeProxy::Pointer child = KeldaneFileNodeProxy::create();
  root_->addChild(child);
  root_->addChild(KeldaneFileNode::create());
  EXPECT_EQ(child->proxy(), proxy_);
  const KeldaneFileNode::Pointer copy = root_->copy();
  const auto* same = dynamic_cast<KeldaneFileNodeProxy*>(copy.get());
  ASSERT_NE(same, nullptr);
  EXPECT_EQ(same->proxy(), nullptr);
  EXPECT_EQ(copy->count(), 2U);
}

TEST_F(FileNodeProxyTest, DescribesItselfAsWhatItIs) {
  EXPECT_TRUE(KeldaneFileNodeProxy::create()->description().starts_with("<KeldaneFileNodeProxy: 0x"));
}

TEST_F(FileNodeProxyTest, WithoutADaemonItIsAPlainNode) {
  root_->setProxy({});
  EXPECT_EQ(root_->children(), nullptr);
  EXPECT_EQ(root_->addPath("/a/b")->path(), "/a/b");
  root_->refreshPath("/a/b");
  EXPECT_EQ(root_->nodeAtPath("/a/b"), nullptr);
  EXPECT_NE(root_->nodeAtPath("/a"), nullptr);
  EXPECT_TRUE(daemon_.calls().empty());
}

TEST_F(FileNodeProxyTest, AProxyThatGoesBetweenTwoLevelsIsAbsent) {
  daemonHas({entry("Users")});
  const KeldaneFileNodeProxy::Pointer below = KeldaneFileNodeProxy::create();
  EXPECT_EQ(root_->count(), 1U);
  root_->addChild(below);
  proxy_->close();
  socket_->close();
  EXPECT_EQ(below->children(), nullptr);
  below->setProxy(KeldaneProxy::create());
  EXPECT_EQ(below->proxy(), nullptr) << "not owned";
  below->flush();
  EXPECT_EQ(below->children(), nullptr);
}

TEST_F(FileNodeProxyTest, ChildrenOfAnotherKindAreNone) {
  daemon_.answer("childrenDictionariesForPath:", "no array");
  EXPECT_EQ(root_->children(), nullptr);
  root_->flush();
  daemonHas({});
  ASSERT_NE(root_->children(), nullptr);
  EXPECT_TRUE(root_->children()->empty());
}

}  // namespace
}  // namespace keldane
