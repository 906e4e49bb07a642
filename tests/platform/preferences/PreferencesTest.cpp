#include "platform/preferences/Preferences.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "platform/files/Descriptor.h"
#include "platform/files/FileContents.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::LogCapture;
using testing::TemporaryFolder;

constexpr char kDomain[] = "com.keldane.preferences";

class PreferencesTest : public ::testing::Test {
 protected:
  PreferencesTest() {
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    Preferences::forget();
  }
  std::string file() const { return folder_ / "com.keldane.preferences.plist"; }
  PropertyList onDisk() const {
    int error = 0;
    const auto bytes = readFile(file(), &error);
    return bytes ? PropertyListSerialization::propertyListFromData(*bytes, nullptr) : PropertyList();
  }
  static void set(const std::string& key, const PropertyList& value) {
    Preferences::setValue(key, value, kDomain);
  }
  static PropertyList get(const std::string& key) { return Preferences::copyValue(key, kDomain); }
  std::size_t damagedFiles() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      count += entry.path().string().find(".damaged-") != std::string::npos ? 1 : 0;
    }
    return count;
  }
  TemporaryFolder folder_;
};

TEST_F(PreferencesTest, LieInTheUsersConfigurationFolder) {
  EXPECT_EQ(Preferences::fileForDomain(kDomain), file());
}

TEST_F(PreferencesTest, AreInMemoryUntilTheyAreSynchronised) {
  set("a", 1);
  EXPECT_EQ(get("a"), PropertyList(1));
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  EXPECT_EQ(onDisk()["a"], PropertyList(1));
  struct stat status {};
  ASSERT_EQ(stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(PreferencesTest, AMissingKeyIsAbsent) { EXPECT_TRUE(get("none").isAbsent()); }

TEST_F(PreferencesTest, SeeWhatOthersWroteOnceSynchronised) {
  folder_.write("com.keldane.preferences.plist",
                "<plist><dict><key>a</key><string>x</string></dict></plist>");
  EXPECT_EQ(get("a").string(), "x");
  folder_.write("com.keldane.preferences.plist",
                "<plist><dict><key>a</key><string>y</string></dict></plist>");
  EXPECT_EQ(get("a").string(), "x");
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  EXPECT_EQ(get("a").string(), "y");
}

TEST_F(PreferencesTest, WriteOnlyWhatThisProcessSet) {
  folder_.write("com.keldane.preferences.plist", "{ a = 1; b = 2; c = 3; }");
  EXPECT_EQ(get("a").string(), "1");
  set("b", "mine");
  set("c", PropertyList());
  folder_.write("com.keldane.preferences.plist", "{ a = theirs; b = theirs; c = theirs; d = theirs; }");
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  const PropertyList disk = onDisk();
  EXPECT_EQ(disk["a"].string(), "theirs");
  EXPECT_EQ(disk["b"].string(), "mine");
  EXPECT_TRUE(disk["c"].isAbsent());
  EXPECT_EQ(disk["d"].string(), "theirs");
  EXPECT_EQ(get("d").string(), "theirs");
}

TEST_F(PreferencesTest, TwoProcessesThatWriteDifferentKeysBothKeepTheirs) {
  constexpr int kProcesses = 4;
  constexpr int kKeys = 40;
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    const pid_t child = fork();
    if (child == 0) {
      bool written = true;
      for (int k = 0; k < kKeys; ++k) {
        set("p" + std::to_string(p) + "k" + std::to_string(k), k);
        written = Preferences::synchronize(kDomain) && written;
      }
      _exit(written ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(onDisk().count(), static_cast<std::size_t>(kProcesses * kKeys));
}

TEST_F(PreferencesTest, ADamagedFileIsSetAsideAndNotLost) {
  for (const std::string content : {"<plist><dict>", "\"a string\"", "bplist00 and then nothing"}) {
    const LogCapture log;
    const std::size_t before = damagedFiles();
    folder_.write("com.keldane.preferences.plist", content);
    Preferences::forget();
    EXPECT_TRUE(get("a").isAbsent());
    EXPECT_EQ(damagedFiles(), before + 1);
    EXPECT_TRUE(log.hasPart("set aside"));
    set("a", 1);
    EXPECT_TRUE(Preferences::synchronize(kDomain));
    EXPECT_EQ(onDisk()["a"], PropertyList(1));
  }
}

TEST_F(PreferencesTest, ADamagedFileThatCannotBeSetAsideIsNotOverwritten) {
  const LogCapture log;
  const std::string content = "<plist><dict>";
  folder_.write("com.keldane.preferences.plist", content);
  // Takes all names that the file could get within the next seconds.
  const std::time_t now = std::time(nullptr);
  for (std::time_t at = now; at < now + 10; ++at) {
    std::tm parts{};
    gmtime_r(&at, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y%m%dT%H%M%SZ", &parts);
    const std::string base = std::string("com.keldane.preferences.plist.damaged-") + stamp;
    folder_.write(base, "");
    for (int attempt = 1; attempt < 100; ++attempt) {
      folder_.write(base + "-" + std::to_string(attempt), "");
    }
  }
  set("a", 1);
  EXPECT_FALSE(Preferences::synchronize(kDomain));
  EXPECT_TRUE(log.hasPart("cannot be set aside"));
  EXPECT_EQ(testing::readWhole(file()), content);
  EXPECT_EQ(get("a"), PropertyList(1)) << "still to be written";
}

TEST_F(PreferencesTest, AFolderInThePlaceOfTheFileIsSetAsideToo) {
  const LogCapture log;
  std::filesystem::create_directory(file());
  set("a", 1);
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  EXPECT_EQ(onDisk()["a"], PropertyList(1));
  EXPECT_EQ(damagedFiles(), 1U);
}

TEST_F(PreferencesTest, WhatCannotBeWrittenStaysPending) {
  const LogCapture log;
  folder_.write("blocked", "a file where a folder belongs");
  setenv("XDG_CONFIG_HOME", (folder_ / "blocked/sub").c_str(), 1);
  set("a", 1);
  EXPECT_FALSE(Preferences::synchronize(kDomain));
  EXPECT_EQ(get("a"), PropertyList(1));
  EXPECT_FALSE(log.lines().empty());
  setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  EXPECT_EQ(onDisk()["a"], PropertyList(1));
}

TEST_F(PreferencesTest, ALockThatIsNeverGivenBackIsNotWaitedForForEver) {
  const LogCapture log;
  const Descriptor lock(
      open((folder_ / ".com.keldane.preferences.plist.lock").c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  set("a", 1);
  EXPECT_FALSE(Preferences::synchronize(kDomain));
  EXPECT_TRUE(log.hasPart("lock"));
}

TEST_F(PreferencesTest, ALinkedFileIsWrittenWhereItLies) {
  folder_.write("elsewhere/real.plist", "{ a = 1; }");
  std::filesystem::create_symlink(folder_ / "elsewhere/real.plist", file());
  set("b", 2);
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_EQ(onDisk()["b"], PropertyList(2));
  EXPECT_EQ(onDisk()["a"].string(), "1");
}

TEST_F(PreferencesTest, ALinkToWhatIsYetToBeWrittenIsWrittenThrough) {
  std::filesystem::create_directory(folder_ / "elsewhere");
  std::filesystem::create_symlink("elsewhere/real.plist", file());
  set("b", 2);
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_TRUE(std::filesystem::is_regular_file(folder_ / "elsewhere/real.plist"));
  EXPECT_EQ(onDisk()["b"], PropertyList(2));
}

TEST_F(PreferencesTest, OfALinkToWhatIsNoFileOnlyTheLinkIsSetAside) {
  const LogCapture log;
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  std::filesystem::create_directory(folder_ / "folder");
  for (const char* target : {"pipe", "folder"}) {
    std::filesystem::remove(file());
    std::filesystem::create_symlink(target, file());
    Preferences::forget();
    set("b", 2);
    EXPECT_TRUE(Preferences::synchronize(kDomain));
    EXPECT_EQ(onDisk()["b"], PropertyList(2));
    EXPECT_TRUE(std::filesystem::exists(folder_ / target));
  }
  EXPECT_EQ(damagedFiles(), 2U);
}

TEST_F(PreferencesTest, LinksThatLeadNowhereAreNoLoop) {
  const LogCapture log;
  std::filesystem::create_symlink(file(), file());
  set("b", 2);
  Preferences::synchronize(kDomain);
  EXPECT_EQ(get("b"), PropertyList(2));
}

TEST_F(PreferencesTest, MakesTheFolderWhenItIsMissing) {
  setenv("XDG_CONFIG_HOME", (folder_ / "new/deep").c_str(), 1);
  set("a", 1);
  EXPECT_TRUE(Preferences::synchronize(kDomain));
  struct stat status {};
  ASSERT_EQ(stat((folder_ / "new/deep").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST_F(PreferencesTest, ADomainIsANameAndNoPath) {
  for (const char* domain : {"", ".hidden", "../x", "a/b"}) {
    Preferences::setValue("a", 1, domain);
    EXPECT_FALSE(Preferences::synchronize(domain));
    EXPECT_TRUE(Preferences::copyValue("a", domain).isAbsent());
  }
}

TEST_F(PreferencesTest, LeavesNoTemporaryFileBehind) {
  for (int i = 0; i < 10; ++i) {
    set("a", i);
    EXPECT_TRUE(Preferences::synchronize(kDomain));
  }
  const auto entries = std::filesystem::directory_iterator(folder_.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 2) << "the file and its lock";
}

}  // namespace
}  // namespace keldane
