#include <gtest/gtest.h>

#include "KeldaneCMM/Source/MenuCommands.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

using testing::DaemonCall;
using testing::Selection;

constexpr std::uint32_t kAllCommands[] = {kCommandSubmenu,        kCommandStatus,      kCommandFirstSeparator,
                                          kCommandBackup,         kCommandExclude,     kCommandBackupASAP,
                                          kCommandBackupType,     kCommandExcludeType, kCommandPreferences,
                                          kCommandSecondSeparator};

class SelectionTest : public testing::MenuTest {
 protected:
  /// Begins a cycle and forgets the questions that the daemon was asked meanwhile.
  void beginCycle() {
    listen();
    ASSERT_EQ(examine({"/begin"}), kNoErr);
    ASSERT_NE(instance_->module, nullptr);
    daemon_->forgetCalls();
  }
  OSStatus choose(std::uint32_t command, const std::vector<std::string>& paths) {
    Selection selection(paths);
    return KeldanePlugin_HandleSelection(instance_, selection.get(), static_cast<SInt32>(command));
  }
  /// All calls that a choice has caused. A last call is sent afterwards, so all earlier ones have arrived.
  std::vector<DaemonCall> callsOf(std::uint32_t command, const std::vector<std::string>& paths) {
    EXPECT_EQ(choose(command, paths), kNoErr);
    EXPECT_EQ(choose(kCommandExclude, {"/last"}), kNoErr);
    const DaemonCall last = {"removeFileFromBackup:", {"/last"}};
    EXPECT_TRUE(testing::eventually([&] {
      const std::vector<DaemonCall> calls = daemon_->calls();
      return !calls.empty() && calls.back() == last;
    }));
    std::vector<DaemonCall> calls = daemon_->calls();
    std::erase(calls, last);
    daemon_->forgetCalls();
    return calls;
  }
};

TEST(MenuCommands, HaveTheirNumbers) {
  EXPECT_EQ(kCommandSubmenu, 0x72326432U);
  EXPECT_EQ(kCommandStatus, 0x72326433U);
  EXPECT_EQ(kCommandFirstSeparator, 0x72326434U);
  EXPECT_EQ(kCommandBackup, 0x7232643CU);
  EXPECT_EQ(kCommandExclude, 0x7232643DU);
  EXPECT_EQ(kCommandBackupASAP, 0x7232643EU);
  EXPECT_EQ(kCommandBackupType, 0x7232643FU);
  EXPECT_EQ(kCommandExcludeType, 0x72326440U);
  EXPECT_EQ(kCommandSecondSeparator, 0x72326441U);
  EXPECT_EQ(kCommandPreferences, 0x72326442U);
}

TEST_F(SelectionTest, BacksUpEachPathInOrder) {
  beginCycle();
  EXPECT_EQ(callsOf(kCommandBackup, {"/3", "/1", "/2"}),
            (std::vector<DaemonCall>{
                {"addFileToBackup:", {"/3"}}, {"addFileToBackup:", {"/1"}}, {"addFileToBackup:", {"/2"}}}));
}

TEST_F(SelectionTest, ExcludesEachPath) {
  beginCycle();
  EXPECT_EQ(callsOf(kCommandExclude, {"/1", "/2"}),
            (std::vector<DaemonCall>{{"removeFileFromBackup:", {"/1"}}, {"removeFileFromBackup:", {"/2"}}}));
}

TEST_F(SelectionTest, BacksUpAndThenGivesPriority) {
  beginCycle();
  EXPECT_EQ(callsOf(kCommandBackupASAP, {"/1", "/2"}),
            (std::vector<DaemonCall>{{"addFileToBackup:", {"/1"}},
                                     {"setPriorityBackup:", {"/1"}},
                                     {"addFileToBackup:", {"/2"}},
                                     {"setPriorityBackup:", {"/2"}}}));
}

TEST_F(SelectionTest, TogglesTheFileTypesThoughNoMenuOffersIt) {
  beginCycle();
  EXPECT_EQ(callsOf(kCommandBackupType, {"/a.txt", "/b"}),
            (std::vector<DaemonCall>{{"setFileTypeToggle:toggle:", {".txt", 6}},
                                     {"setFileTypeToggle:toggle:", {".", 6}}}));
  EXPECT_EQ(callsOf(kCommandExcludeType, {"/a.txt"}),
            (std::vector<DaemonCall>{{"setFileTypeToggle:toggle:", {".txt", 7}}}));
}

TEST_F(SelectionTest, AcceptsEveryOtherNumberAndDoesNothing) {
  beginCycle();
  for (const std::uint32_t command : {kCommandSubmenu, kCommandStatus, kCommandFirstSeparator,
                                      kCommandSecondSeparator, 0U, 1U, 0xFFFFFFFFU}) {
    EXPECT_TRUE(callsOf(command, {"/1"}).empty()) << command;
  }
  EXPECT_TRUE(opened_.empty());
}

TEST_F(SelectionTest, OpensThePreferencesThatTheBundleNames) {
  beginCycle();
  EXPECT_TRUE(callsOf(kCommandPreferences, {"/1", "/2"}).empty());
  EXPECT_EQ(opened_, (std::vector<std::optional<std::string>>{"/opt/prefs.desktop"}));
}

TEST_F(SelectionTest, TakesThePathsAfreshFromItsOwnContext) {
  listen();
  ASSERT_EQ(examine({file("examined")}), kNoErr);
  daemon_->forgetCalls();
  EXPECT_EQ(callsOf(kCommandBackup, {"/chosen"}),
            (std::vector<DaemonCall>{{"addFileToBackup:", {"/chosen"}}}));
}

TEST_F(SelectionTest, DoesNothingWithoutAModule) {
  listen();
  for (const std::uint32_t command : kAllCommands) {
    EXPECT_EQ(choose(command, {"/1"}), kNoErr);
  }
  beginCycle();
  cleanup();
  daemon_->forgetCalls();
  for (const std::uint32_t command : kAllCommands) {
    EXPECT_EQ(choose(command, {"/1"}), kNoErr);
  }
  EXPECT_TRUE(opened_.empty());
  beginCycle();
  EXPECT_TRUE(callsOf(kCommandStatus, {"/1"}).empty());
}

TEST_F(SelectionTest, DoesNothingWithoutAContext) {
  beginCycle();
  for (const std::uint32_t command : kAllCommands) {
    EXPECT_EQ(KeldanePlugin_HandleSelection(instance_, nullptr, static_cast<SInt32>(command)), kNoErr);
  }
  EXPECT_TRUE(opened_.empty());
  EXPECT_TRUE(callsOf(kCommandStatus, {"/1"}).empty());
}

TEST_F(SelectionTest, OpensThePreferencesWhateverTheContextHolds) {
  beginCycle();
  AEDesc nothing{typeNull, nullptr};
  EXPECT_EQ(KeldanePlugin_HandleSelection(instance_, &nothing, static_cast<SInt32>(kCommandPreferences)),
            kNoErr);
  EXPECT_EQ(opened_.size(), 1U);
}

TEST_F(SelectionTest, AnswersZeroWhileTheDaemonIsAway) {
  installWithoutDaemon();
  ASSERT_EQ(examine({file("a")}), kNoErr);
  for (const std::uint32_t command : kAllCommands) {
    EXPECT_EQ(choose(command, {"/1"}), kNoErr);
  }
  EXPECT_EQ(opened_.size(), 1U);
}

TEST_F(SelectionTest, AnswersZeroWhenTheDaemonHasGoneMeanwhile) {
  beginCycle();
  ASSERT_TRUE(daemon_->waitForClients(1));
  daemon_.reset();
  for (const std::uint32_t command : kAllCommands) {
    EXPECT_EQ(choose(command, {"/1", "/2"}), kNoErr);
  }
}

TEST_F(SelectionTest, LogsEachEntryAndThePaths) {
  beginCycle();
  const testing::LogSwitchedOn log;
  choose(kCommandStatus, {"/1"});
  choose(kCommandPreferences, {"/1"});
  const std::string paths = PropertyList::array({"/1"}).description();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"KeldanePlugin_HandleSelection:", paths,
                                                   "KeldanePlugin_HandleSelection:"}));
}

class MissingPreferences : public testing::MenuTest,
                           public ::testing::WithParamInterface<testing::Labelled<PropertyList>> {};

TEST_P(MissingPreferences, ReachTheOpenerAsAbsent) {
  PropertyList::Entries info = {{"DaemonPath", bundle_.daemonPath()}};
  info.emplace_back("Prefpane Path", GetParam().value);  // an entry with an absent value is left out
  bundle_.writeInfo(info);
  installWithoutDaemon();
  ASSERT_EQ(examine({file("a")}), kNoErr);
  Selection selection({"/a"});
  EXPECT_EQ(
      KeldanePlugin_HandleSelection(instance_, selection.get(), static_cast<SInt32>(kCommandPreferences)),
      kNoErr);
  EXPECT_EQ(opened_, (std::vector<std::optional<std::string>>{std::nullopt}));
}

const testing::Labelled<PropertyList> kNoPaths[] = {
    {"Absent", {}}, {"Number", 5}, {"Array", PropertyList::array({"/x"})}};

INSTANTIATE_TEST_SUITE_P(Selection, MissingPreferences, ::testing::ValuesIn(kNoPaths), testing::byLabel);

using PostMenuCleanup = SelectionTest;

TEST_F(PostMenuCleanup, EndsTheConnectionOnceAndLogsEachTime) {
  beginCycle();
  ASSERT_TRUE(daemon_->waitForClients(1));
  {
    const testing::LogSwitchedOn log;
    cleanup();
    cleanup();
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"KeldanePlugin_PostMenuCleanup:", "KeldanePlugin_PostMenuCleanup:"}));
  }
  EXPECT_EQ(instance_->module, nullptr);
  EXPECT_TRUE(daemon_->waitForClients(0));
}

TEST_F(PostMenuCleanup, WithoutAModuleDoesNothing) {
  cleanup();
  EXPECT_EQ(instance_->module, nullptr);
  EXPECT_EQ(instance_->referenceCount, 1U);
}

TEST_F(PostMenuCleanup, IsFollowedByACycleOfItsOwn) {
  beginCycle();
  const std::shared_ptr<KeldaneCMM>* first = instance_->module;
  const std::weak_ptr<KeldaneCMM> weak = *first;
  cleanup();
  EXPECT_TRUE(weak.expired());
  ASSERT_EQ(examine({"/begin"}), kNoErr);
  EXPECT_NE(instance_->module, nullptr);
  EXPECT_EQ(callsOf(kCommandBackup, {"/1"}).back(), (DaemonCall{"addFileToBackup:", {"/1"}}));
}

}  // namespace
}  // namespace keldane
