#include "clients/preferences/worker/tree/NodeTree.h"

#include <gtest/gtest.h>

#include "client-state/BackupState.h"
#include "tests/clients/preferences/worker/DaemonFixture.h"

namespace keldane {
namespace {

using Paths = std::vector<std::string>;

class NodeTreeTest : public testing::DaemonFixture {
 protected:
  NodeTreeTest() {
    for (const char* folder : {"/", "/home", "/home/user", "/home/user/b", "/home/user/a"}) {
      has(folder, true);
    }
    has("/home/user/c", false);
    has("/home/user/a/x", false);
    listen();
    state_.setBundle(bundle_.bundle());
    state_.disableConnectTimer();
    state_.onBegin();
    tree_.setDaemon(state_.proxy());
  }
  ~NodeTreeTest() override { state_.onEnd(); }

  static Paths added(const FolderChange& change) {
    Paths paths;
    for (const AddedRow& each : change.added) {
      paths.push_back(each.row.path + (each.before.empty() ? "" : " before " + each.before));
    }
    return paths;
  }
  static Paths changed(const std::vector<NodeRow>& rows) {
    Paths paths;
    for (const NodeRow& each : rows) {
      paths.push_back(each.path);
    }
    return paths;
  }
  static bool isEmpty(const FolderChange& change) {
    return change.added.empty() && change.changed.empty() && change.removed.empty();
  }

  BackupState state_;
  NodeTree tree_;
};

TEST_F(NodeTreeTest, HasAFolderAtItsTop) {
  EXPECT_EQ(tree_.top(), std::nullopt);
  tree_.open("/home/user/");
  EXPECT_EQ(tree_.topPath(), "/home/user");
  ASSERT_TRUE(tree_.top());
  EXPECT_EQ(tree_.top()->path, "/home/user");
  EXPECT_EQ(tree_.top()->name, "user");
  EXPECT_TRUE(tree_.top()->isFolder);
  EXPECT_TRUE(tree_.top()->enabled);
  EXPECT_FALSE(tree_.needsOpening());
}

TEST_F(NodeTreeTest, AFolderIsAskedForWhenItIsLookedInto) {
  tree_.open("/home/user");
  daemon_->forgetCalls();
  const FolderChange change = tree_.refresh("/home/user");
  EXPECT_EQ(daemon_->count("childrenDictionariesForPath:"), 1U);
  EXPECT_EQ(change.folder, "/home/user");
  EXPECT_EQ(added(change),
            (Paths{"/home/user/c", "/home/user/b before /home/user/c", "/home/user/a before /home/user/b"}));
  EXPECT_TRUE(change.changed.empty());
  EXPECT_EQ(added(tree_.refresh("/home/user/a")), (Paths{"/home/user/a/x"}));
  EXPECT_EQ(tree_.openFolders(), (Paths{"/home/user", "/home/user/a"}));
}

TEST_F(NodeTreeTest, TellsWhatIsDifferent) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user")));
  has("/home/user/c", false, 3);
  has("/home/user/a2", true);
  has("/home/user/d", false);
  loses("/home/user/b");
  const FolderChange change = tree_.refresh("/home/user");
  EXPECT_EQ(changed(change.changed), (Paths{"/home/user/c"}));
  EXPECT_TRUE(change.changed.front().checked);
  EXPECT_EQ(added(change), (Paths{"/home/user/d", "/home/user/a2 before /home/user/c"}));
  EXPECT_EQ(change.removed, (Paths{"/home/user/b"}));
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user")));
}

TEST_F(NodeTreeTest, WhatIsLoadedBelowAFolderStaysWhenItIsReadAgain) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  tree_.refresh("/home/user/a");
  tree_.refresh("/home/user");
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user/a")));
}

TEST_F(NodeTreeTest, AFolderThatWasClosedIsToldAnew) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  tree_.refresh("/home/user/a");
  tree_.close("/home/user");
  EXPECT_EQ(tree_.openFolders(), Paths());
  EXPECT_EQ(tree_.refresh("/home/user").added.size(), 3U);
  EXPECT_EQ(tree_.refresh("/home/user/a").added.size(), 1U);
}

TEST_F(NodeTreeTest, TheRootOfAllCanBeTheTop) {
  tree_.open("/");
  ASSERT_TRUE(tree_.top());
  EXPECT_EQ(tree_.top()->path, "/");
  EXPECT_TRUE(tree_.top()->enabled);
  EXPECT_EQ(added(tree_.refresh("/")), (Paths{"/home"}));
  tree_.close("/");
  EXPECT_EQ(added(tree_.refresh("/")), (Paths{"/home"}));
}

TEST_F(NodeTreeTest, APathIsReadAgainWithAllAboveIt) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  tree_.refresh("/home/user/a");
  daemon_->forgetCalls();
  has("/home/user/a/x", false, 3);
  has("/home/user/a", true, simple_flags::kEnabled | simple_flags::kGrayed);
  const std::vector<NodeRow> rows = tree_.reread("/home/user/a/x");
  EXPECT_EQ(changed(rows), (Paths{"/home/user/a/x", "/home/user/a", "/home/user"}));
  EXPECT_TRUE(rows[0].checked);
  EXPECT_TRUE(rows[1].partly);
  EXPECT_EQ(daemon_->calls().size(), 3U);
}

TEST_F(NodeTreeTest, WhatTheDaemonNoLongerKnowsHasNoRow) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  loses("/home/user/c");
  EXPECT_EQ(changed(tree_.reread("/home/user/c")), (Paths{"/home/user"}));
}

TEST_F(NodeTreeTest, WithoutADaemonNothingChanges) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  tree_.setDaemon(nullptr);
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user")));
  EXPECT_TRUE(tree_.reread("/home/user/c").empty());
  EXPECT_TRUE(tree_.top());
  tree_.open("/home");
  EXPECT_TRUE(tree_.needsOpening());
  tree_.setDaemon(state_.proxy());
  tree_.open("/home");
  EXPECT_FALSE(tree_.needsOpening());
}

TEST_F(NodeTreeTest, ADaemonThatGoesTakesNothingAlong) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  daemon_.reset();
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user")));
}

TEST_F(NodeTreeTest, AnAnswerWithOneNameTwiceIsToldOnce) {
  const PropertyList entry = PropertyList::dictionary({{"fileName", "c"}, {"path", "/home/user/c"}});
  tree_.open("/home/user");
  daemon_->answer("childrenDictionariesForPath:", PropertyList::array({entry, entry}));
  tree_.refresh("/home/user");
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user")));
}

TEST_F(NodeTreeTest, AnAnswerThatLeadsUpCannotBeLookedInto) {
  tree_.open("/home/user");
  daemon_->answer(
      "childrenDictionariesForPath:",
      PropertyList::array({PropertyList::dictionary(
          {{"fileName", "up"}, {"path", "/home"}, {"isDirectory", PropertyList::boolean(true)}})}));
  const FolderChange change = tree_.refresh("/home/user");
  ASSERT_EQ(change.added.size(), 1U);
  EXPECT_FALSE(change.added.front().row.isFolder);
}

class RestoreTreeTest : public NodeTreeTest {
 protected:
  RestoreTreeTest() {
    daemon_->answer("dictionaryForPath:", [](const PropertyList::Array& arguments) {
      return entry(std::string(arguments[0].string()), true, backup_flags::kFolder);
    });
    daemon_->answer("childrenDictionariesForPath:", [](const PropertyList::Array& arguments) {
      const std::string folder(arguments[0].string());
      return folder == "/top"
                 ? PropertyList::array(
                       {entry("/top/stored", false, backup_flags::kBackup),
                        entry("/top/gone", false, backup_flags::kBackup | backup_flags::kMissing),
                        entry("/top/never", false, 0),
                        entry("/top/other", true, backup_flags::kFolder | backup_flags::kNotActive),
                        entry("/top/folder", true, backup_flags::kFolder)})
             : folder == "/top/folder"
                 ? PropertyList::array({entry("/top/folder/inner", false, backup_flags::kBackup)})
                 : PropertyList();
    });
    tree_.setDaemon(state_.proxy());
    tree_.open("/top");
  }

  static PropertyList entry(const std::string& path, bool isFolder, std::uint32_t flags) {
    PropertyList::Entries entries = {{"fileName", path.substr(path.rfind('/') + 1)},
                                     {"path", path},
                                     {"isDirectory", PropertyList::boolean(isFolder)},
                                     {"state", "As it is"},
                                     {"backupFlags", flags}};
    if ((flags & backup_flags::kBackup) != 0) {
      entries.emplace_back("backupDate", Date::fromUnixTime(1000));
    }
    return PropertyList::dictionary(std::move(entries));
  }

  NodeTree tree_{TreeKind::restore};  // replaces the fixture's tree of rules
};

TEST_F(RestoreTreeTest, ShowsWhatCanBeRestoredAndWhatLeadsThere) {
  EXPECT_EQ(added(tree_.refresh("/top")),
            (Paths{"/top/stored", "/top/gone before /top/stored", "/top/folder before /top/gone"}));
}

TEST_F(RestoreTreeTest, MarksWhatIsNoLongerThere) {
  for (const AddedRow& each : tree_.refresh("/top").added) {
    EXPECT_EQ(each.row.isGone, each.row.path == "/top/gone") << each.row.path;
    EXPECT_TRUE(each.row.enabled) << each.row.path;
    EXPECT_EQ(each.row.state.empty(), each.row.isFolder) << each.row.path;
  }
}

TEST_F(RestoreTreeTest, AFolderHandsItsSelectionDownToWhatIsFoundLater) {
  tree_.refresh("/top");
  EXPECT_TRUE(tree_.select("/top/folder", true).front().checked);
  EXPECT_EQ(tree_.selectedPaths(), Paths{"/top/folder"});
  EXPECT_TRUE(tree_.refresh("/top/folder").added.front().row.checked);
  EXPECT_EQ(tree_.selectedPaths(), Paths{"/top/folder"});
}

TEST_F(RestoreTreeTest, WhatLiesAboveAPartIsSelectedPartly) {
  tree_.refresh("/top");
  const std::vector<NodeRow> rows = tree_.select("/top/gone", true);
  EXPECT_EQ(changed(rows), (Paths{"/top/gone", "/top"}));
  EXPECT_TRUE(rows.back().partly);
  EXPECT_FALSE(rows.back().checked);
  EXPECT_EQ(tree_.selectedPaths(), Paths{"/top/gone"});
  tree_.select("/top/gone", false);
  EXPECT_TRUE(tree_.selectedPaths().empty());
}

TEST_F(RestoreTreeTest, TheSelectionStaysWhenTheDaemonIsAskedAgain) {
  tree_.refresh("/top");
  tree_.select("/top/gone", true);
  tree_.refresh("/top");
  EXPECT_EQ(tree_.selectedPaths(), Paths{"/top/gone"});
}

class PastTreeTest : public NodeTreeTest {
 protected:
  PastTreeTest() : tree_(TreeKind::restore) {
    tree_.setDaemon(state_.proxy());
    tree_.setPast([this](const std::string& folder) {
      asked_.push_back(folder);
      PropertyList::Array nodes;
      if (folder == "/home/user") {
        nodes = {node("/home/user/old", true), node("/home/user/gone.txt", false)};
      }
      return PropertyList::array(std::move(nodes));
    });
  }
  static PropertyList node(const std::string& path, bool isFolder) {
    return PropertyList::dictionary({{"fileName", path.substr(path.rfind('/') + 1)},
                                     {"path", path},
                                     {"isDirectory", PropertyList::boolean(isFolder)},
                                     {"backupDate", Date::fromUnixTime(1000)}});
  }

  NodeTree tree_;
  Paths asked_;
};

TEST_F(PastTreeTest, HasWhatWasThereThen) {
  tree_.open("/home/user");
  daemon_->forgetCalls();
  const FolderChange change = tree_.refresh("/home/user");
  EXPECT_EQ(added(change), (Paths{"/home/user/gone.txt", "/home/user/old before /home/user/gone.txt"}));
  EXPECT_EQ(asked_, Paths{"/home/user"});
  EXPECT_EQ(daemon_->count("childrenDictionariesForPath:"), 0U);
  EXPECT_TRUE(isEmpty(tree_.refresh("/home/user/old")));
}

TEST_F(PastTreeTest, IsSelectedFrom) {
  tree_.open("/home/user");
  tree_.refresh("/home/user");
  tree_.select("/home/user/gone.txt", true);
  EXPECT_EQ(tree_.selectedPaths(), Paths{"/home/user/gone.txt"});
}

TEST_F(PastTreeTest, HasThePresentAgain) {
  tree_.setPast({});
  tree_.open("/home/user");
  daemon_->forgetCalls();
  tree_.refresh("/home/user");
  EXPECT_EQ(daemon_->count("childrenDictionariesForPath:"), 1U);
  EXPECT_TRUE(asked_.empty());
}

}  // namespace
}  // namespace keldane
