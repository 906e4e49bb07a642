#include "KeldaneCMM/Source/KeldaneCMM.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>

#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Exceptions.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

using testing::DaemonCall;

class KeldaneCMMTest : public testing::MenuTest {
 protected:
  void connect() {
    if (!daemon_) {
      listen();
    }
    module_ = KeldaneCMM::init();
    ASSERT_TRUE(daemon_->waitForClients(1));
  }
  std::uint32_t offersFor(const PropertyList& dictionary, std::uint32_t before = 0) {
    if (!module_) {
      connect();
    }
    know("/x", dictionary);
    module_->addBackupFlag(&before, "/x");
    return before;
  }
  /// All calls that were sent so far, without the marker.
  std::vector<DaemonCall> calls() {
    module_->removePathFromBackup("/marker");
    const DaemonCall marker = {"removeFileFromBackup:", {"/marker"}};
    EXPECT_TRUE(testing::eventually([&] {
      const std::vector<DaemonCall> all = daemon_->calls();
      return !all.empty() && all.back() == marker;
    }));
    std::vector<DaemonCall> all = daemon_->calls();
    std::erase(all, marker);
    daemon_->forgetCalls();
    return all;
  }
  std::shared_ptr<KeldaneCMM> module_;
};

TEST_F(KeldaneCMMTest, ConnectsBeforeInitReturnsAndDisconnectsWhenItGoes) {
  listen();
  const testing::LogSwitchedOn log;
  const std::size_t observers = NotificationCenter::defaultCenter().observerCount();
  module_ = KeldaneCMM::init();
  EXPECT_TRUE(log.has("KeldaneCMM connected"));
  ASSERT_TRUE(daemon_->waitForClients(1));
  module_.reset();
  EXPECT_FALSE(log.has("KeldaneCMM disconnected")) << "it no longer listens to its own end";
  EXPECT_TRUE(daemon_->waitForClients(0));
  EXPECT_EQ(NotificationCenter::defaultCenter().observerCount(), observers);
}

TEST_F(KeldaneCMMTest, LogsALostConnection) {
  connect();
  const testing::LogSwitchedOn log;
  daemon_->hangUp();
  EXPECT_TRUE(testing::eventuallyRunning([&] { return log.has("KeldaneCMM disconnected"); }));
}

TEST_F(KeldaneCMMTest, TriesOnceOnly) {
  installWithoutDaemon();
  const testing::LogSwitchedOn log;
  module_ = KeldaneCMM::init();
  EXPECT_EQ(RunLoop::main().load().timers, 0U);
  EXPECT_TRUE(log.has("ConnectionController:start - trying to connect immediately"));
  EXPECT_FALSE(log.has("KeldaneCMM connected"));
  EXPECT_FALSE(log.has("KeldaneCMM disconnected"));
}

TEST_F(KeldaneCMMTest, AnswersNoAndSendsNothingWithoutADaemon) {
  installWithoutDaemon();
  module_ = KeldaneCMM::init();
  const std::string path = file("a.txt");
  EXPECT_EQ(module_->nodeForPath(path), nullptr);
  EXPECT_FALSE(module_->isPathExcludedFromBackup(path));
  EXPECT_FALSE(module_->isPathInBackup(path));
  EXPECT_FALSE(module_->getSetPriorityForPath(path));
  EXPECT_EQ(module_->getTypeToggleForPath(path), 0);
  EXPECT_TRUE(module_->stateForPath(path).isAbsent());
  std::uint32_t mask = 0xF0;
  module_->addBackupFlag(&mask, path);
  EXPECT_EQ(mask, 0xF0U);
  EXPECT_FALSE(module_->addPathToBackup(path));
  EXPECT_FALSE(module_->removePathFromBackup(path));
  EXPECT_FALSE(module_->backupASAP(path));
  EXPECT_TRUE(module_->backupFileType(path));
  EXPECT_TRUE(module_->excludeFileType(path));
  EXPECT_EQ(module_->fileTypeForPath(path), ".txt") << "which needs no connection";
}

TEST_F(KeldaneCMMTest, AnswersNoOfAPathThatTheDaemonDoesNotKnow) {
  connect();
  EXPECT_EQ(module_->nodeForPath("/x"), nullptr);
  EXPECT_FALSE(module_->isPathExcludedFromBackup("/x"));
  EXPECT_FALSE(module_->isPathInBackup("/x"));
  EXPECT_FALSE(module_->getSetPriorityForPath("/x"));
  EXPECT_TRUE(module_->stateForPath("/x").isAbsent());
  std::uint32_t mask = 4;
  module_->addBackupFlag(&mask, "/x");
  EXPECT_EQ(mask, 4U);
}

TEST_F(KeldaneCMMTest, AsksForANodeWithoutFolderSizes) {
  connect();
  know("/x", node(2));
  EXPECT_NE(module_->nodeForPath("/x"), nullptr);
  EXPECT_EQ(calls(), (std::vector<DaemonCall>{{testing::kAskForNode, {"/x", 0}}}));
}

TEST_F(KeldaneCMMTest, TakesAPathWithoutTheEnabledFlagForBarred) {
  connect();
  for (const auto& [flags, barred] : std::initializer_list<std::pair<std::uint32_t, bool>>{
           {0, true}, {1, true}, {2, false}, {3, false}, {0xFFFFFFFD, true}, {0xFFFFFFFF, false}}) {
    for (const bool isDirectory : {false, true}) {
      know("/x", node(flags, isDirectory));
      EXPECT_EQ(module_->isPathExcludedFromBackup("/x"), barred) << flags;
    }
  }
}

TEST_F(KeldaneCMMTest, GivesTheDaemonsStatusText) {
  connect();
  know("/x", node(2, false, "Waiting"));
  EXPECT_EQ(module_->stateForPath("/x"), PropertyList("Waiting"));
}

TEST_F(KeldaneCMMTest, TellsWhatIsInTheBackupByTheDaemonsFlags) {
  connect();
  const std::pair<std::uint32_t, bool> rows[] = {{0, false},
                                                 {0x80, true},
                                                 {0x8000000, true},
                                                 {0x8000080, true},
                                                 {0x80 | 0x40, false},
                                                 {0x8000000 | 0x40, false},
                                                 {0x80 | 0x20000, false},
                                                 {0x8000000 | 0x20000, false},
                                                 {0x80 | 0x60040, false},
                                                 {0x10 | 0x20, false},
                                                 {0xFFFFFFFF, false},
                                                 {0xFFFFFFFF & ~0x20040U, true}};
  for (const auto& [flags, inBackup] : rows) {
    know("/x", PropertyList::dictionary({{"backupFlags", flags}}));
    EXPECT_EQ(module_->isPathInBackup("/x"), inBackup) << std::hex << flags;
  }
}

TEST_F(KeldaneCMMTest, OffersPriorityWhereItCanBeGivenAndHasNotBeen) {
  connect();
  const std::pair<std::uint32_t, bool> rows[] = {{0, false},       {0x20000, false}, {0x40000, false},
                                                 {0x60000, true},  {0x70000, false}, {0x50000, false},
                                                 {0x30000, false}, {0x60007, true},  {0xFFFFFFFF, false}};
  for (const auto& [flags, offered] : rows) {
    know("/x", node(flags));
    EXPECT_EQ(module_->getSetPriorityForPath("/x"), offered) << std::hex << flags;
  }
}

TEST_F(KeldaneCMMTest, OffersBothForAFolderWhateverItsFlags) {
  for (const std::uint32_t flags : {0U, 1U, 2U, 3U, 4U, 6U, 7U, 0xFFFFFFFFU}) {
    EXPECT_EQ(offersFor(node(flags, true)), 3U) << flags;
  }
}

TEST_F(KeldaneCMMTest, OffersForAFileWhatItsFlagsAllow) {
  const std::pair<std::uint32_t, std::uint32_t> rows[] = {{0, 0}, {1, 0}, {4, 0}, {5, 0},         {2, 1},
                                                          {3, 2}, {6, 3}, {7, 2}, {0xFFFFFFFD, 0}};
  for (const auto& [flags, offers] : rows) {
    EXPECT_EQ(offersFor(node(flags)), offers) << flags;
  }
}

TEST_F(KeldaneCMMTest, OnlyEverAddsOffers) {
  EXPECT_EQ(offersFor(node(0), 0xF3), 0xF3U);
  EXPECT_EQ(offersFor(node(2), 0xF2), 0xF3U);
  EXPECT_EQ(offersFor(node(3), 0xF1), 0xF3U);
  EXPECT_EQ(offersFor(node(3), 0), 2U);
}

TEST_F(KeldaneCMMTest, StopsAtANullMask) {
  installWithoutDaemon();
  module_ = KeldaneCMM::init();
  try {
    module_->addBackupFlag(nullptr, "/x");
    FAIL() << "a null mask was taken";
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.method(), "-[KeldaneCMM addBackupFlag:forPath:]");
    EXPECT_EQ(failure.file(), "KeldaneCMM/Source/KeldaneCMM");
    EXPECT_EQ(failure.line(), 111);
    EXPECT_EQ(failure.description(), "flags");
  }
}

TEST_F(KeldaneCMMTest, PassesCommandsOnWithFixedResults) {
  connect();
  EXPECT_FALSE(module_->addPathToBackup("/a"));
  EXPECT_FALSE(module_->removePathFromBackup("/b"));
  EXPECT_FALSE(module_->backupASAP("/c"));
  EXPECT_TRUE(module_->backupFileType("/d.txt"));
  EXPECT_TRUE(module_->excludeFileType("/e.txt"));
  EXPECT_EQ(calls(), (std::vector<DaemonCall>{{"addFileToBackup:", {"/a"}},
                                              {"removeFileFromBackup:", {"/b"}},
                                              {"addFileToBackup:", {"/c"}},
                                              {"setPriorityBackup:", {"/c"}},
                                              {"setFileTypeToggle:toggle:", {".txt", 6}},
                                              {"setFileTypeToggle:toggle:", {".txt", 7}}}));
}

TEST_F(KeldaneCMMTest, AsksForTheToggleOfAFilesType) {
  connect();
  daemon_->answer("getFileTypeToggle:", 7);
  EXPECT_EQ(module_->getTypeToggleForPath("/a.txt"), 7);
  daemon_->answer("getFileTypeToggle:", UINT32_MAX);
  EXPECT_EQ(module_->getTypeToggleForPath("/a"), -1);
  EXPECT_EQ(calls(),
            (std::vector<DaemonCall>{{"getFileTypeToggle:", {".txt"}}, {"getFileTypeToggle:", {"."}}}));
}

/// Tests with files that have a type code in their extended attribute.
class FileTypes : public KeldaneCMMTest {
 protected:
  FileTypes() {
    installWithoutDaemon();
    module_ = KeldaneCMM::init();
  }
  ~FileTypes() override { std::filesystem::remove_all(elsewhere_); }

  /// Makes a file with this code in the temporary folder or, if that supports no such attributes, in the
  /// working folder.
  std::string typedFile(const std::string& name, const std::string& code) {
    const std::string info = code + std::string(32 - code.size(), '\0');
    for (const bool here : {false, true}) {
      std::filesystem::create_directories(elsewhere_);
      const std::string path = here ? (elsewhere_ / name).string() : file(name);
      std::ofstream{path};
      if (setxattr(path.c_str(), "user.com.apple.FinderInfo", info.data(), info.size(), 0) == 0) {
        return path;
      }
    }
    ADD_FAILURE() << "Neither the temporary folder nor the build folder keeps extended attributes of users.";
    return {};
  }

 private:
  const std::filesystem::path elsewhere_ =
      std::filesystem::current_path() / ("keldane-types-" + std::to_string(getpid()));
};

TEST_F(FileTypes, AreTheExtensionWithItsPoint) {
  EXPECT_EQ(module_->fileTypeForPath("/a/b.txt"), ".txt");
  EXPECT_EQ(module_->fileTypeForPath("/a/b.tar.gz"), ".gz");
  EXPECT_EQ(module_->fileTypeForPath("/a/B.TXT"), ".TXT");
}

TEST_F(FileTypes, AreAPointAloneWithoutExtensionAndCode) {
  EXPECT_EQ(module_->fileTypeForPath(file("plain")), ".");
  EXPECT_EQ(module_->fileTypeForPath("/there/is/no/such/file"), ".");
  EXPECT_EQ(module_->fileTypeForPath(file(".hidden")), ".");
  EXPECT_EQ(module_->fileTypeForPath(folder("folder")), ".");
}

TEST_F(FileTypes, AreTheCodeBackwardsWithoutAnExtension) {
  const std::pair<std::string, std::string> rows[] = {
      {"TEXT", ".TXET"},
      {"????", "."},
      {"    ", "."},
      {std::string(4, '\0'), "."},
      {"PDF ", ". FDP"},
      {"txt.", ".txt"},                  // begins with the point already when it is read backwards
      {std::string("A\0BC", 4), ".CB"},  // ends at the first NUL
      {std::string("ABC\0", 4), "."},    // the NUL may be the first byte
      {"\xA9\xC3"
       "ab",
       ".ba\u00E9"},        // the bytes backwards are text
      {"ab\xFF\xFE", "."},  // these are not
  };
  for (const auto& [code, type] : rows) {
    EXPECT_EQ(module_->fileTypeForPath(typedFile("typed", code)), type) << code;
  }
}

TEST_F(FileTypes, PreferTheExtensionToTheCode) {
  EXPECT_EQ(module_->fileTypeForPath(typedFile("typed.txt", "PDF ")), ".txt");
}

TEST_F(FileTypes, OfALinkAreNotThoseOfItsTarget) {
  const std::string link = file("folder/link");
  std::filesystem::remove(link);
  std::filesystem::create_symlink(typedFile("target", "TEXT"), link);
  EXPECT_EQ(module_->fileTypeForPath(link), ".");
}

TEST_F(KeldaneCMMTest, IgnoresWhatTheDaemonCallsBack) {
  connect();
  const testing::LogSwitchedOn log;
  daemon_->tellClients(PropertyList::dictionary({{"paused", true}}));
  know("/x", node(2));
  EXPECT_NE(module_->nodeForPath("/x"), nullptr) << "the link is as good as before";
  RunLoop::main().runDue();
  EXPECT_FALSE(log.hasPart("ERROR"));
}

TEST_F(KeldaneCMMTest, TakesItsBundleForTheOneOfThisCode) {
  EXPECT_EQ(KeldaneCMM::bundle(), bundle_.bundle()) << "code outside of any bundle has the main one";
}

TEST_F(KeldaneCMMTest, SurvivesAnswersOfTheWrongKind) {
  connect();
  for (const PropertyList& answer :
       {PropertyList("text"), PropertyList(7), PropertyList::array({1}), PropertyList::dictionary({}),
        PropertyList::dictionary({{"simpleFlags", "two"},
                                  {"isDirectory", PropertyList::array({})},
                                  {"state", 5},
                                  {"children", "none"},
                                  {"path", 7}})}) {
    know("/x", answer);
    daemon_->answer("getFileTypeToggle:", answer);
    std::uint32_t mask = 0;
    module_->addBackupFlag(&mask, "/x");
    EXPECT_EQ(mask, 0U);
    EXPECT_FALSE(module_->isPathInBackup("/x"));
    EXPECT_FALSE(module_->getSetPriorityForPath("/x"));
    module_->getTypeToggleForPath("/x");
    module_->stateForPath("/x");
    module_->isPathExcludedFromBackup("/x");
  }
}

}  // namespace
}  // namespace keldane
