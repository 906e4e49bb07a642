// The daemon's answers to a user without rights: they reveal nothing about files that this user cannot see,
// and this user can change nothing there.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "Common/nodes/FileNode.h"
#include "tests/daemon/server/ServerFixture.h"

namespace keldane {
namespace {

using testing::RawConnection;

using testing::kStranger;

class StrangersTest : public testing::DaemonServerTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can be somebody else";
    }
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(folder_ / "home", std::filesystem::perms(0755));
    folder_.write("home/theirs/secret.txt", "a secret");
    folder_.write("home/theirs/open.txt", "open");
    folder_.write("home/closed/inside.txt", "inside");
    folder_.write("home/mine/own.txt", "own");
    mode("home/docs", 0755);
    mode("home/theirs", 0755);
    mode("home/theirs/secret.txt", 0600);
    mode("home/theirs/open.txt", 0644);
    mode("home/closed", 0700);
    mode("home/mine", 0700);
    for (const char* name : {"home/mine", "home/mine/own.txt"}) {
      ASSERT_EQ(chown((folder_ / name).c_str(), kStranger, kStranger), 0);
    }
    stranger_ = std::make_unique<RawConnection>(testing::connectedAs(kStranger, options_.socket));
  }
  void mode(const std::string& name, mode_t mode) { ASSERT_EQ(chmod((folder_ / name).c_str(), mode), 0); }
  std::string home(const std::string& name) const { return folder_ / ("home/" + name); }

  /// The answer to the stranger; absent for a method without an answer.
  PropertyList ask(const char* selector, const PropertyList::Array& arguments) {
    const MethodSignature& method = *KeldaneDaemonProtocol.find(selector);
    const std::string returnType(1, method.returnCode);
    PropertyList::Array request = {8, returnType, selector, static_cast<std::uint32_t>(arguments.size())};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      request.emplace_back(std::string(1, method.argumentCodes[i]));
      request.push_back(arguments[i]);
    }
    stranger_->writeFrame(kRequestFrame, RawConnection::payloadOf(PropertyList::array(std::move(request))));
    return method.returnCode == 'v' ? PropertyList() : stranger_->readFrame().value();
  }
  PropertyList nodeFor(const std::string& name) { return ask("dictionaryForPath:", {home(name)}); }
  /// When this is answered, all earlier messages have been carried out.
  void settle() { EXPECT_EQ(ask("getCurrentRestoreJob", {}), PropertyList(0)); }

  std::unique_ptr<RawConnection> stranger_;
};

TEST_F(StrangersTest, SeeWhatTheyCouldRead) {
  EXPECT_EQ(nodeFor("theirs/open.txt")["state"].string(), "Not selected for backup");
  EXPECT_EQ(nodeFor("mine/own.txt")["size"].intValue(), 3);
  EXPECT_TRUE(nodeFor("theirs")["isDirectory"].boolValue());
}

TEST_F(StrangersTest, AreToldNothingOfWhatTheyCannotRead) {
  for (const char* name : {"theirs/secret.txt", "closed", "closed/inside.txt", "closed/none", "none"}) {
    EXPECT_TRUE(nodeFor(name).isAbsent()) << name;
    EXPECT_TRUE(ask("childrenDictionariesForPath:", {home(name)}).isAbsent()) << name;
    EXPECT_EQ(ask("backupColorsForFiles:", {PropertyList::array({home(name)})}), PropertyList::array({0}));
  }
}

TEST_F(StrangersTest, AreListedWhatTheyCouldRead) {
  const PropertyList children = ask("childrenDictionariesForPath:", {home("theirs")});
  ASSERT_EQ(children.count(), 1U);
  EXPECT_EQ(children[0]["fileName"].string(), "open.txt");
  std::set<std::string> names;
  const PropertyList above = ask("childrenDictionariesForPath:", {folder_ / "home"});
  for (std::size_t i = 0; i < above.count(); ++i) {
    names.emplace(above[i]["fileName"].string());
  }
  EXPECT_EQ(names, (std::set<std::string>{"docs", "mine", "theirs"}));
}

TEST_F(StrangersTest, AreToldTheSizeOfWhatTheyCouldRead) {
  const PropertyList theirs = ask("dictionaryForPath:withDirSizes:", {home("theirs"), 1});
  EXPECT_EQ(theirs["size"].intValue(), 4);
  EXPECT_EQ(theirs["totalCount"].intValue(), 1);
}

TEST_F(StrangersTest, ChangeTheRulesOfTheirOwnFilesOnly) {
  EXPECT_EQ(ask("excludeFileFromBackup:", {home("mine/own.txt")}), PropertyList(0));
  EXPECT_EQ(ask("unexcludeFileFromBackup:", {home("mine/own.txt")}), PropertyList(0));
  EXPECT_EQ(ask("excludeFileFromBackup:", {home("mine/none")}), PropertyList(ENOENT));
  ask("addFileToBackup:", {home("mine")});
  settle();
  EXPECT_NE(simple(home("mine")) & simple_flags::kChecked, 0U);
  for (const char* name :
       {"theirs/secret.txt", "theirs/open.txt", "theirs", "closed/inside.txt", "docs", "."}) {
    EXPECT_EQ(ask("excludeFileFromBackup:", {home(name)}), PropertyList(EACCES)) << name;
    EXPECT_EQ(ask("unexcludeFileFromBackup:", {home(name)}), PropertyList(EACCES)) << name;
    ask("addFileToBackup:", {home(name)});
    ask("addFilesToBackup:", {PropertyList::array({home(name)})});
    ask("removeFileFromBackup:", {home(name)});
    ask("setPriorityBackup:", {home(name)});
  }
  settle();
  EXPECT_EQ((*client_)->excludedFiles(folder_ / "home").count(), 0U);
  EXPECT_EQ(simple(home("docs")) & simple_flags::kChecked, 0U);
}

TEST_F(StrangersTest, AreNotToldOfRulesBelowThatTheyCannotSee) {
  (*client_)->addFileToBackup(home("closed/inside.txt"));
  (*client_)->removeFileFromBackup(home("theirs/secret.txt"));
  EXPECT_EQ(state(folder_ / "home"), "Partly selected for backup");
  EXPECT_EQ(ask("dictionaryForPath:", {folder_ / "home"})["state"].string(), "Not selected for backup");
  EXPECT_EQ(ask("excludedFiles:", {folder_ / "home"}), PropertyList::array({}));
  (*client_)->addFileToBackup(home("theirs/open.txt"));
  EXPECT_EQ(state(folder_ / "home"), "Partly selected for backup") << "and the rule is there";
  EXPECT_EQ(ask("dictionaryForPath:", {folder_ / "home"})["state"].string(), "Partly selected for backup");
}

TEST_F(StrangersTest, AreNotToldOfWhatIsGone) {
  (*client_)->addFileToBackup(home("theirs/secret.txt"));
  (*client_)->addFileToBackup(home("mine/own.txt"));
  ASSERT_TRUE(becomes(home("theirs/secret.txt"), "Backed up"));
  ASSERT_TRUE(becomes(home("mine/own.txt"), "Backed up"));
  std::filesystem::remove(home("theirs/secret.txt"));
  std::filesystem::remove(home("mine/own.txt"));
  EXPECT_TRUE(nodeFor("theirs/secret.txt").isAbsent());
  EXPECT_EQ(ask("childrenDictionariesForPath:", {home("theirs")}).count(), 1U);
  EXPECT_EQ(nodeFor("mine/own.txt")["state"].string(), "Deleted here, still in the backup");
  EXPECT_EQ(ask("childrenDictionariesForPath:", {home("mine")}).count(), 1U);
}

TEST_F(StrangersTest, AreNotToldWhichFileIsBackedUpNow) {
  // This sparse file is large enough to be under way for the whole test.
  folder_.write("home/closed/large", "");
  std::filesystem::resize_file(home("closed/large"), std::uintmax_t{1} << 40);
  (*client_)->addFileToBackup(home("closed/large"));
  ASSERT_TRUE(testing::eventually(
      [&] { return (*client_)->daemonState()["currentBackupFile"].string() == home("closed/large"); }));
  EXPECT_EQ(ask("daemonState", {})["currentBackupFile"].string(), "");
  EXPECT_EQ(ask("daemonState", {})["pendingFileCount"].intValue(), 1);
  EXPECT_EQ(ask("stringForState:", {3U}).string(), "");
  EXPECT_EQ((*client_)->stringForState(3U).string(), home("closed/large"));
  ask("setStateHandler", {});
  const PropertyList told = stranger_->readFrame().value();
  EXPECT_EQ(told[2].string(), "stateChanged:");
  EXPECT_EQ(told[5]["currentBackupFile"].string(), "");
}

TEST_F(StrangersTest, AreServedWhenAnotherUserHasAllThatOneUserMayHave) {
  end();
  limits_.connectionsOfUser = 3;
  begin();
  stranger_ = std::make_unique<RawConnection>(testing::connectedAs(kStranger, options_.socket));
  RawConnection second = testing::connectedTo(options_.socket), third = testing::connectedTo(options_.socket);
  EXPECT_TRUE(testing::connectedTo(options_.socket).isAtEnd()) << "the fourth of this user";
  settle();
}

}  // namespace
}  // namespace keldane
