// The daemon's reports on its own work are true at every moment.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "Common/nodes/FileNode.h"
#include "tests/daemon/server/ServerFixture.h"

namespace keldane {
namespace {

using testing::DaemonServerTest;
using testing::eventually;

class StateTest : public DaemonServerTest {
 protected:
  PropertyList daemonState() { return (*client_)->daemonState(); }
  bool becomesState(const std::string& text) {
    return eventually([&] { return daemonState()["statusString"].string() == text; });
  }
  /// Writes files into one of many folders, so that a scan takes a while to find them.
  void writeMany(int files) {
    for (int i = 0; i < 800; ++i) {
      std::filesystem::create_directories(folder_ / ("home/many/" + std::to_string(i)));
    }
    for (int i = 0; i < files; ++i) {
      folder_.write("home/many/400/" + std::to_string(i), "x");
    }
  }
  std::string endless(const std::string& name) {
    std::string path = folder_.write("home/" + name, "");
    EXPECT_EQ(truncate(path.c_str(), off_t{10} << 40), 0);
    return path;
  }
  PropertyList childNamed(const std::string& folder, const std::string& name) {
    const PropertyList children = (*client_)->childrenDictionariesForPath(folder);
    for (std::size_t i = 0; i < children.count(); ++i) {
      if (children[i]["fileName"].string() == name) {
        return children[i];
      }
    }
    return {};
  }
};

TEST_F(StateTest, IsNotUpToDateFromARuleUntilAllThatItIncludesIsStored) {
  constexpr int kFiles = 300;
  writeMany(kFiles);
  EXPECT_EQ(daemonState()["statusString"].string(), "Up to date");
  (*client_)->addFileToBackup(folder_ / "home/many");
  PropertyList state;
  do {
    state = daemonState();
    if (state["isBackupNeeded"].boolValue()) {
      EXPECT_EQ(state["backupState"].intValue(), 1);
      EXPECT_NE(state["statusString"].string().substr(0, 10), "Up to date");
    }
  } while (state["isBackupNeeded"].boolValue() || state["pendingFileCount"].intValue() > 0);
  EXPECT_EQ(state["backedUpFileCount"].intValue(), kFiles);
  EXPECT_EQ(state["statusString"].string(), "Up to date");
  EXPECT_EQ(state["backupState"].intValue(), 0);
}

TEST_F(StateTest, IsNotUpToDateAfterATypesRule) {
  (*client_)->setFileTypeToggle(".txt", 6U);
  PropertyList state;
  do {
    state = daemonState();
  } while (state["isBackupNeeded"].boolValue());
  EXPECT_EQ(state["backedUpFileCount"].intValue(), 2);
}

TEST_F(StateTest, SaysThatFilesWaitBecauseAutomaticBackupIsOff) {
  (*client_)->setAutomaticMode(0);
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomesState("Automatic backup is off: 2 files wait"));
  const PropertyList state = daemonState();
  EXPECT_EQ(state["backupState"].intValue(), 0) << "nothing is being backed up";
  EXPECT_TRUE(state["isBackupNeeded"].boolValue());
  EXPECT_EQ(state["heldBy"].string(), "manual");
  (*client_)->setPriorityBackup(docs("a.txt"));
  EXPECT_TRUE(becomesState("Automatic backup is off: 1 file waits"));
  EXPECT_EQ(this->state(docs("a.txt")), "Backed up");
  (*client_)->setAutomaticMode(1);
  EXPECT_TRUE(becomesState("Up to date"));
  EXPECT_EQ(daemonState()["heldBy"].string(), "");
}

TEST_F(StateTest, SaysWhyItRests) {
  (*client_)->setPausedMinutes(10U);
  EXPECT_EQ(daemonState()["heldBy"].string(), "paused");
  (*client_)->setEnabled(0);
  EXPECT_EQ(daemonState()["heldBy"].string(), "off");
  EXPECT_EQ(daemonState()["backupState"].intValue(), 3);
  (*client_)->setEnabled(1);
  (*client_)->setPausedMinutes(0U);
  (*client_)->setRecoverMode(1);
  EXPECT_EQ(daemonState()["heldBy"].string(), "recovering");
}

TEST_F(StateTest, CountsOneFileAsOne) {
  chmod(docs("a.txt").c_str(), 0);
  (*client_)->addFileToBackup(docs());
  EXPECT_TRUE(becomesState("Up to date, but 1 file could not be backed up"));
  EXPECT_EQ(state(docs("a.txt")), "Could not be backed up: It cannot be read.");
}

TEST_F(StateTest, NobodysSizesSpoilIt) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  ASSERT_TRUE(eventually([&] { return daemon_->worker().progress().isReady; }));
  const SnapshotRecord snapshot = {1, std::string(64, 'b'), 1, false, ""};
  daemon_->store().addSnapshot(
      snapshot, {{"/x/a", {kLargest, 1, 1}}, {"/x/b", {kLargest, 1, 1}}, {"/x/c", {5, 1, 1}}}, {});
  EXPECT_EQ(daemonState()["backedupFileSize"].unsignedLongLongValue(),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(daemonState()["statusString"].string(), "Up to date");
  daemon_->store().setRemoved("/x/a", true, 2);
  daemon_->store().setRemoved("/x/b", true, 2);
  EXPECT_EQ(daemonState()["backedupFileSize"].unsignedLongLongValue(), 5U);
}

TEST_F(StateTest, TellsHowFarAFileHasCome) {
  const std::string path = endless("large");
  (*client_)->addFileToBackup(path);
  EXPECT_TRUE(becomes(path, "Being backed up: 0%"));
  EXPECT_EQ(node(path)["backupColor"].intValue(), 3);
  EXPECT_EQ(daemonState()["currentBackupFile"].string(), path);
  (*client_)->removeFileFromBackup(path);
  EXPECT_EQ(state(path), "Not selected for backup");
  EXPECT_TRUE(becomesState("Up to date"));
  EXPECT_EQ(daemonState()["backedUpFileCount"].intValue(), 0);
}

TEST_F(StateTest, LinksAreStoredAndWhatIsNoFileIsCalledByItsName) {
  std::filesystem::create_symlink("a.txt", docs("link"));
  ASSERT_EQ(mkfifo(docs("pipe").c_str(), 0600), 0);
  ASSERT_EQ(mknod(docs("socket").c_str(), S_IFSOCK | 0600, 0), 0);
  (*client_)->addFileToBackup(docs());
  EXPECT_TRUE(becomes(docs("link"), "Backed up"));
  EXPECT_TRUE(becomesState("Up to date"));
  EXPECT_EQ(state(docs("pipe")), "Pipe, goes with its folder");
  EXPECT_EQ(state(docs("socket")), "Socket, never backed up");
  for (const char* name : {"link", "pipe", "socket"}) {
    EXPECT_EQ(simple(docs(name)) & (simple_flags::kPriorityEnabled | simple_flags::kPriorityVisible), 0U)
        << name;
  }
}

TEST_F(StateTest, AFolderThatIsGoneStaysInSightWithItsBackups) {
  folder_.write("home/docs/old/deeper/c.txt", "gamma");
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomes(docs("old/deeper/c.txt"), "Backed up"));
  std::filesystem::remove_all(docs("old"));
  for (int life = 0; life < 2; ++life) {
    for (const char* name : {"old", "old/deeper", "old/deeper/c.txt"}) {
      EXPECT_EQ(state(docs(name)), "Deleted here, still in the backup") << name;
      EXPECT_EQ(node(docs(name))["isDirectory"].boolValue(), !std::string(name).ends_with(".txt")) << name;
      EXPECT_NE(node(docs(name))["backupFlags"].unsignedIntValue() & backup_flags::kMissing, 0U) << name;
    }
    EXPECT_EQ(childNamed(docs(), "old")["state"].string(), "Deleted here, still in the backup");
    EXPECT_TRUE(childNamed(docs(), "old")["isDirectory"].boolValue());
    EXPECT_EQ(childNamed(docs("old"), "deeper")["state"].string(), "Deleted here, still in the backup");
    EXPECT_EQ(childNamed(docs("old/deeper"), "c.txt")["state"].string(), "Deleted here, still in the backup");
    const PropertyList measured = (*client_)->dictionaryForPath(docs("old"), 1);
    EXPECT_EQ(measured["size"].intValue(), 5);
    EXPECT_EQ(measured["totalCount"].intValue(), 1);
    EXPECT_TRUE(node(docs("ol")).isAbsent());
    EXPECT_TRUE((*client_)->childrenDictionariesForPath(docs("never")).isAbsent());
    ASSERT_TRUE(becomesState("Up to date"));
    end();
    begin();
  }
}

TEST_F(StateTest, ARuleForNothingIsNotKept) {
  const std::string path = docs("none");
  (*client_)->addFileToBackup(path);
  (*client_)->removeFileFromBackup(path);
  (*client_)->addFilesToBackup(PropertyList::array({path}));
  EXPECT_EQ((*client_)->excludeFileFromBackup(path), static_cast<std::uint32_t>(ENOENT));
  EXPECT_TRUE(daemon_->rules().isEmpty());
  EXPECT_EQ((*client_)->unexcludeFileFromBackup(path), 0U) << "there is none, as was asked for";
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomes(docs(), "Backed up"));
  std::filesystem::remove_all(docs());
  (*client_)->removeFileFromBackup(docs("a.txt"));
  EXPECT_EQ((*client_)->excludeFileFromBackup(docs()), 0U) << "something of it is in the backup";
  EXPECT_EQ((*client_)->excludedFiles(docs()).count(), 2U);
}

TEST_F(StateTest, TypesThatNoFileHasAreRefused) {
  for (const std::string& type : {std::string(".tar.gz"), std::string(".a/b"), std::string("txt"),
                                  std::string(), "." + std::string(5000, 'x')}) {
    (*client_)->setFileTypeToggle(type, 7U);
    EXPECT_EQ((*client_)->getFileTypeToggle(type), 0U) << type;
  }
  (*client_)->setFileTypeToggle(".", 7U);
  EXPECT_EQ((*client_)->getFileTypeToggle("."), 7U) << "files without a type";
}

TEST_F(StateTest, SaysWhyAPathIsInOrOut) {
  const auto reasons = [&](const std::string& path) {
    const PropertyList found = (*client_)->dictionaryForPath(path)["reasons"];
    std::string text;
    for (std::size_t i = 0; i < found.count(); ++i) {
      text += std::string(found[i]["text"].string()) + "\n";
    }
    return text;
  };
  EXPECT_EQ(reasons(docs("a.txt")), "No rule includes it.\n");
  (*client_)->addFileToBackup(docs());
  (*client_)->setFileTypeToggle(".txt", 7U);
  EXPECT_EQ(reasons(docs("a.txt")),
            "The rule for files of the type .txt excludes it.\nThe rule of the folder " + docs() +
                " includes it.\n");
  (*client_)->addFileToBackup(docs("a.txt"));
  EXPECT_EQ(reasons(docs("a.txt")).substr(0, 31), "A rule of its own includes it.\n");
  EXPECT_EQ(reasons(docs()), "A rule of its own includes it.\n");
  EXPECT_EQ(reasons("/etc"),
            "It lies outside of " + options_.root + ", and only what is in there can be backed up.\n");
  EXPECT_EQ((*client_)->dictionaryForPath(docs())["reasons"][0]["kind"].string(), "own");
  EXPECT_TRUE(node(docs("a.txt"))["reasons"].isAbsent()) << "a menu does not need them";
}

}  // namespace
}  // namespace keldane
