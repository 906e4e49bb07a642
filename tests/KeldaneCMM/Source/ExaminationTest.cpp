#include <gtest/gtest.h>

#include <fstream>

#include "KeldaneCMM/Source/KeldaneCMM.h"
#include "platform/notifications/NotificationCenter.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

using testing::command;
using testing::kAskForNode;
using testing::Menu;
using testing::MenuItem;
using testing::Selection;
using Titles = std::vector<std::string>;

constexpr std::uint32_t kEnabled = 2;            // a file that may be backed up and is not
constexpr std::uint32_t kChecked = 3;            // a file that is backed up
constexpr std::uint32_t kPriority = 0x60002;     // a file that may be given priority
constexpr std::uint32_t kHasPriority = 0x70002;  // a file that has priority

constexpr char kBackup[] = "Back This Up";
constexpr char kExclude[] = "Don't Back This Up";
constexpr char kASAP[] = "Back Up This File As Soon As Possible";
constexpr char kPreferences[] = "Open Keldane Preferences\u2026";
constexpr char kSeveral[] = "Status: <multiple files selected>";
constexpr char kStatus[] = "Status: Backed up";

class Examination : public testing::MenuTest {
 protected:
  std::string knownFile(const std::string& name, std::uint32_t flags) {
    return know(file(name), node(flags));
  }
  std::string knownFolder(const std::string& name, std::uint32_t flags = 0x2) {
    return know(folder(name), node(flags, true));
  }
  void expectNothingShown(OSStatus status = kNoErr) {
    EXPECT_EQ(examine({file("a")}), status);
    EXPECT_FALSE(menu());
    EXPECT_EQ(instance_->module, nullptr) << "and no daemon is asked";
  }
};

// Tests of whether there is anything to show.

TEST_F(Examination, ShowsNothingInAnotherHost) {
  listen();
  const testing::LogSwitchedOn log;
  for (const auto& [signature, type] :
       std::initializer_list<std::pair<OSType, OSType>>{{fourCharCode("MACS"), fourCharCode("APPL")},
                                                        {fourCharCode("ttxt"), fourCharCode("FNDR")},
                                                        {fourCharCode("????"), fourCharCode("????")}}) {
    Host::shared().setProcess(signature, type);
    expectNothingShown();
  }
  EXPECT_EQ(log.count("KeldanePlugin_ExamineContext: Not the Finder!"), 3U);
}

TEST_F(Examination, ShowsNothingWhenTheHostCannotBeAsked) {
  listen();
  const testing::LogSwitchedOn log;
  Host::shared().setProcessInformationError(-600);
  expectNothingShown();
  EXPECT_EQ(log.lines(), (Titles{"KeldanePlugin_ExamineContext:",
                                 "KeldanePlugin_ExamineContext: GetProcessInformation error: -600."}));
}

TEST_F(Examination, AnswersTheErrorOfTheCapabilityQuestion) {
  listen();
  Host::shared().setGestaltError(-5550);
  expectNothingShown(-5550);
}

TEST_F(Examination, ShowsNothingWithoutAnApplicationObject) {
  listen();
  Host::shared().setApplicationAvailable(false);
  expectNothingShown();
}

TEST_F(Examination, ShowsNothingForASelectionWithoutPaths) {
  listen();
  EXPECT_EQ(examine(static_cast<const AEDesc*>(nullptr)), kNoErr);
  EXPECT_FALSE(menu());
  const AEDesc null{typeNull, nullptr};
  EXPECT_EQ(examine(&null), kNoErr);
  EXPECT_FALSE(menu());
  for (const Titles& texts : {Titles{}, Titles{"/a"}, Titles{"/a", "/b"}}) {
    const Selection selection(texts, testing::createText);
    EXPECT_EQ(examine(selection.get()), kNoErr);
    EXPECT_FALSE(menu());
  }
  EXPECT_EQ(instance_->module, nullptr);
}

class NoDaemonPath : public Examination,
                     public ::testing::WithParamInterface<testing::Labelled<PropertyList>> {};

TEST_P(NoDaemonPath, ShowsNothingAndSaysNothing) {
  bundle_.writeInfo({{"CFBundleName", "Test"}, {"DaemonPath", GetParam().value}});
  const testing::LogSwitchedOn log;
  expectNothingShown();
  EXPECT_FALSE(log.has("No path"));
}

const testing::Labelled<PropertyList> kNoPaths[] = {
    {"Absent", {}},
    {"Empty", ""},
    {"Number", 5},
    {"Array", PropertyList::array({"/tmp"})},
    {"Dictionary", PropertyList::dictionary({{"DaemonPath", "/tmp"}})}};

INSTANTIATE_TEST_SUITE_P(Examination, NoDaemonPath, ::testing::ValuesIn(kNoPaths), testing::byLabel);

class BrokenInfo : public Examination,
                   public ::testing::WithParamInterface<testing::Labelled<std::string>> {};

TEST_P(BrokenInfo, ShowsNothing) {
  bundle_.folder().write("Test.plugin/Contents/Info.plist", GetParam().value);
  expectNothingShown();
}

const testing::Labelled<std::string> kBrokenInfos[] = {{"Empty", ""},
                                                       {"TruncatedBinary", "bplist00"},
                                                       {"TruncatedXml", "<plist><dict><key>DaemonPath</key>"},
                                                       {"Array", "(array)"},
                                                       {"String", "\"text\""},
                                                       {"NoText", "\xFF\xFE"}};

INSTANTIATE_TEST_SUITE_P(Examination, BrokenInfo, ::testing::ValuesIn(kBrokenInfos), testing::byLabel);

TEST_F(Examination, ShowsNothingWhenNothingIsAtTheDaemonsPath) {
  const testing::LogSwitchedOn log;
  expectNothingShown();
  EXPECT_TRUE(log.has("No path"));
  std::filesystem::create_symlink("/there/is/no/such/file", bundle_.daemonPath());
  expectNothingShown();
  EXPECT_EQ(log.count("No path"), 2U) << "a link to nowhere is nothing";
}

TEST_F(Examination, AnswersAParameterErrorWhenTheModuleCannotBeMade) {
  listen();
  int token = 0;
  NotificationCenter::defaultCenter().addObserver(
      &token, KeldaneBackupStateConnectionChangedNotification, nullptr, [&](const Notification&) {
        NotificationCenter::defaultCenter().removeObserver(&token);
        throw std::runtime_error("an observer that is not ours");
      });
  const testing::LogCapture log;
  expectNothingShown(-50);
  EXPECT_TRUE(log.hasPart("an observer that is not ours"));
  EXPECT_EQ(examine({file("a")}), kNoErr);
  EXPECT_TRUE(menu()) << "the next examination tries again";
}

TEST_F(Examination, LogsThePathsAfterItsOwnLine) {
  const testing::LogSwitchedOn log;
  examine({"/a"});
  EXPECT_EQ(log.lines(),
            (Titles{"KeldanePlugin_ExamineContext:", PropertyList::array({"/a"}).description(), "No path"}));
}

TEST_F(Examination, TestsTheLogSwitchFirst) {
  constexpr char kSwitch[] = "/tmp/keldane_logging";
  const bool wasThere = std::filesystem::exists(kSwitch);
  const testing::LogCapture log;
  ASSERT_FALSE(KeldaneLogEnabled());
  // A machine has only one switch file, so another test may remove it meanwhile.
  EXPECT_TRUE(testing::eventually([&] {
    std::ofstream{kSwitch, std::ios::app};
    examine({"/a"});
    if (!wasThere) {
      std::filesystem::remove(kSwitch);
    }
    return KeldaneLogEnabled();
  }));
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines().front(), "KeldanePlugin_ExamineContext:") << "a line of that same examination";
  examine({"/a"});
  EXPECT_EQ(log.count("KeldanePlugin_ExamineContext:"), 2U) << "it stays on";
  gLoggingEnabled = false;
}

// Tests of the menu.

TEST_F(Examination, BuildsTheWholeMenuByteByByte) {
  const std::string path = know(file("a"), node(0x60006));
  ASSERT_EQ(examine({path}), kNoErr);
  const std::optional<Menu> shown = menu();
  ASSERT_TRUE(shown);
  EXPECT_EQ(shown->parent, (MenuItem{"Keldane", std::string("2d2r\0\0\0\0", 8), 4U}));
  EXPECT_EQ(shown->items, (std::vector<MenuItem>{{kStatus, command("r2d3"), 128U},
                                                 {"-", command("r2d4"), 128U},
                                                 {kBackup, command("r2d<"), {}},
                                                 {kExclude, command("r2d="), {}},
                                                 {kASAP, command("r2d>"), {}},
                                                 {"-", command("r2dA"), 128U},
                                                 {kPreferences, command("r2dB"), {}}}));
}

TEST_F(Examination, WritesNoAttributesForAHostThatKnowsNone) {
  Host::shared().setContextualMenuAttributes(~gestaltContextualMenuHasAttributeAndModifierKeys);
  ASSERT_EQ(examine({knownFile("a", kPriority)}), kNoErr);
  const std::optional<Menu> shown = menu();
  ASSERT_TRUE(shown);
  EXPECT_EQ(shown->parent.attributes, std::nullopt);
  EXPECT_EQ(shown->items.size(), 6U);
  for (const MenuItem& item : shown->items) {
    EXPECT_EQ(item.attributes, std::nullopt) << item;
  }
}

TEST_F(Examination, AsksTheHostForItsCapabilitiesEachTime) {
  const Titles selection = {knownFile("a", kEnabled)};
  for (const bool attributes : {false, true, false}) {
    Host::shared().setContextualMenuAttributes(attributes ? 4 : 0);
    ASSERT_EQ(examine(selection), kNoErr);
    EXPECT_EQ(gHasAttributeAndModifierKeys, attributes);
    EXPECT_EQ(menu()->parent.attributes.has_value(), attributes);
  }
}

TEST_F(Examination, OffersWhatAFileAllows) {
  EXPECT_EQ(titles({knownFile("a", kEnabled)}), (Titles{kStatus, "-", kBackup, "-", kPreferences}));
  EXPECT_EQ(titles({knownFile("b", kChecked)}), (Titles{kStatus, "-", kExclude, "-", kPreferences}));
  EXPECT_EQ(titles({knownFile("c", 6)}), (Titles{kStatus, "-", kBackup, kExclude, "-", kPreferences}));
}

TEST_F(Examination, OffersBothForAFolderAndNeverPriority) {
  EXPECT_EQ(titles({knownFolder("a", 0x60002)}),
            (Titles{kStatus, "-", kBackup, kExclude, "-", kPreferences}));
}

TEST_F(Examination, OffersPriorityWhenEveryFileCanBeGivenIt) {
  const std::string a = knownFile("a", kPriority);
  const std::string b = knownFile("b", kPriority);
  EXPECT_EQ(titles({a}), (Titles{kStatus, "-", kBackup, kASAP, "-", kPreferences}));
  EXPECT_EQ(titles({a, b}), (Titles{kSeveral, "-", kBackup, kASAP, "-", kPreferences}));
  EXPECT_EQ(titles({a, b, knownFile("c", kHasPriority)}),
            (Titles{kSeveral, "-", kBackup, "-", kPreferences}));
  EXPECT_EQ(titles({a, knownFolder("folder")}),
            (Titles{kSeveral, "-", kBackup, kExclude, "-", kPreferences}));
}

TEST_F(Examination, AsksAnItemThatIsNotThereForNoPriorityAndCountsItAsNoFolder) {
  const std::string gone = know("/no/such/item", node(kPriority));
  EXPECT_EQ(titles({gone}), (Titles{kStatus, "-", kBackup, "-", kPreferences}));
  EXPECT_EQ(titles({gone, knownFile("a", kPriority)}),
            (Titles{kSeveral, "-", kBackup, kASAP, "-", kPreferences}));
}

TEST_F(Examination, GathersTheOffersOfTheWholeSelection) {
  EXPECT_EQ(titles({knownFile("a", kEnabled), knownFile("b", kChecked)}),
            (Titles{kSeveral, "-", kBackup, kExclude, "-", kPreferences}));
}

TEST_F(Examination, ShowsNothingWhenOneItemIsBarred) {
  const std::string good = knownFile("good", kEnabled);
  const std::string barred = knownFile("barred", 1);
  for (const Titles& selection :
       {Titles{barred}, Titles{good, barred}, Titles{barred, good}, Titles{good, barred, good}}) {
    EXPECT_EQ(titles(selection), (Titles{"(none)"}));
    EXPECT_NE(instance_->module, nullptr);
  }
  EXPECT_EQ(titles({knownFolder("barred folder", 1)}), (Titles{"(none)"}));
}

TEST_F(Examination, ShowsFixedItemsOnlyWhileTheDaemonIsAway) {
  installWithoutDaemon();
  EXPECT_EQ(titles({file("a")}), (Titles{"-", "-", kPreferences}));
  EXPECT_EQ(titles({file("a"), folder("b")}), (Titles{kSeveral, "-", "-", kPreferences}));
}

TEST_F(Examination, ShowsFixedItemsOnlyForWhatTheDaemonDoesNotKnow) {
  listen();
  EXPECT_EQ(titles({file("a")}), (Titles{"-", "-", kPreferences}));
}

TEST_F(Examination, ShowsNothingOfADaemonThatDiesWhileItIsAsked) {
  listen();
  daemon_->answer(kAskForNode, [this](const PropertyList::Array&) {
    daemon_->hangUp();
    return PropertyList();
  });
  EXPECT_EQ(titles({file("a")}), (Titles{"-", "-", kPreferences}));
  cleanup();
  EXPECT_EQ(titles({knownFile("a", kEnabled)}), (Titles{kStatus, "-", kBackup, "-", kPreferences}))
      << "the next cycle works";
}

TEST_F(Examination, CountsASingleDescriptorOfAnyFileKindAsOneItem) {
  const std::string path = knownFile("a", kEnabled);
  for (const Selection::Maker maker :
       {&createFileURLDescriptor, &createAliasDescriptor, &createFileReferenceDescriptor}) {
    for (const bool list : {false, true}) {
      const Selection selection({path}, maker, list);
      ASSERT_EQ(examine(selection.get()), kNoErr);
      EXPECT_EQ(menu()->items.front().title, kStatus);
    }
  }
}

TEST_F(Examination, CountsOnlyTheItemsThatHaveAPath) {
  Selection selection({knownFile("a", kEnabled), "/b"});
  OwnedDescriptor text;
  testing::createText("no path", text.get());
  AEPutDesc(selection.get(), 2, text.get());
  ASSERT_EQ(examine(selection.get()), kNoErr);
  EXPECT_EQ(menu()->items.front().title, kStatus);
}

TEST_F(Examination, CountsASymbolicLinkAsWhatItPointsTo) {
  const std::string link = bundle_.folder() / "link";
  std::filesystem::create_symlink(folder("target"), link);
  know(link, node(kPriority));
  EXPECT_EQ(titles({link}), (Titles{kStatus, "-", kBackup, "-", kPreferences})) << "a folder has no priority";
}

// Tests of the title texts.

TEST_F(Examination, TakesTheTitlesFromTheUsersLanguage) {
  bundle_.writeStrings("en", "\"Single File Status\" = \"State %@!\"; \"Menu Title\" = \"Backup\";");
  bundle_.writeStrings("de",
                       "\"Single File Status\" = \"Zustand: %@\"; \"Multi-file Status\" = \"Viele\";"
                       "\"Back up This File\" = \"Sichern\"; \"Don't Back up This File\" = \"Lassen\";"
                       "\"ASAP\" = \"Sofort\"; \"Prefs\" = \"Einstellungen\"; \"Menu Title\" = \"Menü\";");
  const std::string path = knownFile("a", 0x60006);
  EXPECT_EQ(titles({path}).front(), "State Backed up!");
  EXPECT_EQ(menu()->parent.title, "Backup");
  EXPECT_EQ(menu()->items.back().title, kPreferences) << "a key that the table lacks has its default";
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_EQ(titles({path}),
            (Titles{"Zustand: Backed up", "-", "Sichern", "Lassen", "Sofort", "-", "Einstellungen"}));
  EXPECT_EQ(menu()->parent.title, "Menü");
  EXPECT_EQ(titles({path, path}).front(), "Viele");
}

TEST_F(Examination, PassesTheStatusTextsThroughAFormat) {
  bundle_.writeStrings("en", "\"Single File Status\" = \"100%% %@\"; \"Multi-file Status\" = \"100%%\";");
  const std::string path = knownFile("a", kEnabled);
  EXPECT_EQ(titles({path}).front(), "100% Backed up");
  EXPECT_EQ(titles({path, path}).front(), "100%");
}

TEST_F(Examination, SurvivesFormatsThatAskForMoreThanThereIs) {
  const std::string hostile = "%@%s%n%d%@%1000000000d%*d%s%p%";
  bundle_.writeStrings("en", "\"Single File Status\" = \"" + hostile + "\"; \"Multi-file Status\" = \"" +
                                 hostile + "\"; \"Back up This File\" = \"" + hostile + "\";");
  const std::string path = knownFile("a", kEnabled);
  EXPECT_EQ(titles({path}).front().substr(0, 9), "Backed up");
  EXPECT_EQ(menu()->items[2].title, hostile) << "the other titles are no formats";
  EXPECT_EQ(titles({path, path}).size(), 5U);
}

TEST_F(Examination, ShowsAStateOfAnyKind) {
  const std::pair<PropertyList, std::string> rows[] = {
      {{}, "Status: (null)"},
      {"", "Status: "},
      {5, "Status: 5"},
      {"%@ %s", "Status: %@ %s"},
      {"zwei\nZeilen", "Status: zwei\nZeilen"},
      {PropertyList::array({1}), "Status: " + PropertyList::array({1}).description()}};
  for (const auto& [state, title] : rows) {
    EXPECT_EQ(titles({know(file("a"), node(kEnabled, false, state))}).front(), title);
  }
}

// Tests of the questions to the daemon.

TEST_F(Examination, AsksTheDaemonAsOftenAsItAlwaysDid) {
  const std::string plain = knownFile("a.txt", kEnabled);
  const std::string other = knownFolder("b");
  const std::string gone = know("/no/such/item", node(kEnabled));
  struct Row {
    Titles selection;
    std::size_t nodes, toggles;
  };
  // A file takes four look-ups: excluded, in the backup, priority, offers. A single selection asks once more
  // for its status line.
  const Row rows[] = {{{plain}, 5, 1}, {{other}, 4, 0}, {{gone}, 4, 0}, {{plain, other, gone}, 4 + 3 + 3, 1}};
  for (const Row& row : rows) {
    daemon_->forgetCalls();
    ASSERT_EQ(examine(row.selection), kNoErr);
    EXPECT_EQ(daemon_->count(kAskForNode), row.nodes);
    EXPECT_EQ(daemon_->count("getFileTypeToggle:"), row.toggles);
    EXPECT_EQ(daemon_->calls().size(), row.nodes + row.toggles);
  }
}

TEST_F(Examination, AsksPathByPathInTheSelectionsOrder) {
  const std::string a = knownFile("a.txt", kEnabled);
  const std::string b = knownFolder("b");
  ASSERT_EQ(examine({b, a}), kNoErr);
  const testing::DaemonCall askA = {kAskForNode, {a, 0}};
  const testing::DaemonCall askB = {kAskForNode, {b, 0}};
  const testing::DaemonCall askType = {"getFileTypeToggle:", {".txt"}};
  EXPECT_EQ(daemon_->calls(),
            (std::vector<testing::DaemonCall>{askB, askB, askB, askA, askA, askType, askA, askA}));
}

TEST_F(Examination, UsesTheModuleOfTheSameCycleAgain) {
  const std::string path = knownFile("a", kEnabled);
  ASSERT_EQ(examine({path}), kNoErr);
  const std::shared_ptr<KeldaneCMM>* module = instance_->module;
  ASSERT_EQ(examine({path}), kNoErr);
  EXPECT_EQ(instance_->module, module);
  EXPECT_TRUE(daemon_->waitForClients(1));
}

TEST_F(Examination, AppendsToWhatTheHostHasInItsList) {
  const Selection selection({knownFile("a", kEnabled)});
  OwnedDescriptor list;
  AECreateList(nullptr, 0, false, list.get());
  const std::int32_t other = 5;
  AEPutPtr(list.get(), 0, typeLongInteger, &other, sizeof(other));
  ASSERT_EQ(KeldanePlugin_ExamineContext(instance_, selection.get(), list.get()), kNoErr);
  std::int32_t count = 0;
  AECountItems(list.get(), &count);
  EXPECT_EQ(count, 2);
  DescType type = 0;
  AESizeOfNthItem(list.get(), 2, &type, nullptr);
  EXPECT_EQ(type, typeAERecord);
}

TEST_F(Examination, TakesAThousandItems) {
  Titles selection;
  listen();
  daemon_->answer(kAskForNode, node(kPriority));
  for (int i = 0; i < 1000; ++i) {
    selection.push_back("/no/such/item/" + std::to_string(i));
  }
  EXPECT_EQ(titles(selection), (Titles{kSeveral, "-", kBackup, "-", kPreferences}));
  EXPECT_EQ(daemon_->count(kAskForNode), 3000U);
}

TEST_F(Examination, TakesPathsOfEveryForm) {
  listen();
  daemon_->answer(kAskForNode, node(kEnabled));
  for (const std::string& name : {std::string("a:b"), std::string("100% %@ %s"), std::string("zwei\nZeilen"),
                                  std::string("\U0001F600"), std::string(255, 'x')}) {
    const std::string path = file(name);
    daemon_->forgetCalls();
    EXPECT_EQ(titles({path}), (Titles{kStatus, "-", kBackup, "-", kPreferences}));
    EXPECT_EQ(daemon_->calls().front(), (testing::DaemonCall{kAskForNode, {path, 0}}));
  }
  EXPECT_EQ(titles({"/" + std::string(4095, 'y')}), (Titles{kStatus, "-", kBackup, "-", kPreferences}));
  EXPECT_EQ(titles({"/not\xFFtext"}), (Titles{"(none)"}));
}
}  // namespace
}  // namespace keldane
