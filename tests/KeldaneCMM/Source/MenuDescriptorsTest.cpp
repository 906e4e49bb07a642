#include "KeldaneCMM/Source/MenuDescriptors.h"

#include <gtest/gtest.h>

#include "tests/KeldaneCMM/Source/FailingCalls.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

using testing::createText;
using testing::Selection;
using Paths = std::vector<std::string>;

Paths pathsOf(const std::vector<std::string>& paths, Selection::Maker maker = createFileURLDescriptor,
              bool alwaysAList = false) {
  const Selection selection(paths, maker, alwaysAList);
  return AEDescToNSArray(selection.get());
}

TEST(SelectionToPaths, TakesASingleDescriptorOfAnyFileKindAsOneItem) {
  for (const Selection::Maker maker :
       {&createFileURLDescriptor, &createAliasDescriptor, &createFileReferenceDescriptor}) {
    EXPECT_EQ(pathsOf({"/a/b c"}, maker), (Paths{"/a/b c"}));
    EXPECT_EQ(pathsOf({"/a/b c"}, maker, true), (Paths{"/a/b c"})) << "and a list of one";
    EXPECT_EQ(pathsOf({"/2", "/1"}, maker), (Paths{"/2", "/1"})) << "and a list, in its order";
  }
}

TEST(SelectionToPaths, FindsNoneInWhatIsNoFile) {
  const AEDesc null{typeNull, nullptr};
  EXPECT_TRUE(AEDescToNSArray(&null).empty());
  EXPECT_TRUE(pathsOf({}).empty()) << "an empty list";
  EXPECT_TRUE(pathsOf({"/a"}, createText).empty());
  EXPECT_TRUE(pathsOf({"/a", "/b"}, createText).empty());
  const AEDesc broken{typeAEList, nullptr};
  EXPECT_TRUE(AEDescToNSArray(&broken).empty());
}

TEST(SelectionToPaths, LeavesOutItemsWithoutAPath) {
  Selection selection({"/1", "/2"});
  OwnedDescriptor text;
  createText("/3", text.get());
  AEPutDesc(selection.get(), 1, text.get());  // replaces the first item
  OwnedDescriptor last;
  createFileURLDescriptor("/4", last.get());
  AEPutDesc(selection.get(), 0, last.get());
  EXPECT_EQ(AEDescToNSArray(selection.get()), (Paths{"/2", "/4"}));
}

TEST(SelectionToPaths, BringsEveryTextPathBack) {
  const Paths paths = {"/",
                       "/a:b",
                       "/100%",
                       "/%41",
                       "/line\nbreak",
                       "/caf\u00E9",
                       "/cafe\u0301",
                       "/\U0001F600",
                       "/ends with colon:",
                       "/ leading and trailing ",
                       "/a#b?c",
                       "/" + std::string(4095, 'x')};
  EXPECT_EQ(pathsOf(paths), paths);
  for (const std::string& path : paths) {
    EXPECT_EQ(pathsOf({path}), (Paths{path}));
  }
}

TEST(SelectionToPaths, GivesFoldersWithoutATrailingSlash) { EXPECT_EQ(pathsOf({"/a/b/"}), (Paths{"/a/b"})); }

TEST(SelectionToPaths, LeavesOutPathsThatAreNotText) {
  EXPECT_EQ(pathsOf({"/good", "/b\xFF\xFE", "/fine"}), (Paths{"/good", "/fine"}));
  EXPECT_TRUE(pathsOf({"/b\xC3"}).empty());
}

TEST(SelectionToPaths, LeavesOutAnItemThatCannotBeReadAndGoesOn) {
  const Selection selection({"/1", "/2", "/3"});
  for (const char* function : {"AEGetNthDesc", "AECoerceDesc"}) {
    testing::failCall(function, 2, errAECoercionFail);
    EXPECT_EQ(AEDescToNSArray(selection.get()), (Paths{"/1", "/3"})) << function;
    EXPECT_TRUE(testing::stopFailing()) << function;
  }
  const Selection single({"/1"});
  testing::failCall("AECoerceDesc", 1, errAECoercionFail);
  EXPECT_TRUE(AEDescToNSArray(single.get()).empty());
  EXPECT_TRUE(testing::stopFailing());
}

TEST(SelectionToPaths, ThrowsRatherThanLeaveOutWhatThereIsNoMemoryFor) {
  const Selection selection({"/1", "/2", "/3"});
  for (const char* function : {"AEGetNthDesc", "AECoerceDesc"}) {
    testing::failCall(function, 2, memFullErr);
    EXPECT_THROW(AEDescToNSArray(selection.get()), std::bad_alloc) << function;
    EXPECT_TRUE(testing::stopFailing()) << function;
  }
}

TEST(SelectionToPaths, LogsThePaths) {
  const testing::LogSwitchedOn log;
  pathsOf({"/a", "/b"});
  pathsOf({});
  EXPECT_EQ(log.lines(), (std::vector<std::string>{PropertyList::array({"/a", "/b"}).description(),
                                                   PropertyList::array({}).description()}));
}

TEST(DescriptorToPath, IsAbsentForWhatIsNoFile) {
  OwnedDescriptor text;
  createText("/a", text.get());
  EXPECT_EQ(AEDescToPath(text.get()), std::nullopt);
  OwnedDescriptor url;
  createFileURLDescriptor("/a", url.get());
  EXPECT_EQ(AEDescToPath(url.get()), "/a");
}

class MenuItems : public ::testing::Test {
 protected:
  MenuItems() {
    AECreateList(nullptr, 0, false, list_.get());
    gHasAttributeAndModifierKeys = true;
  }
  ~MenuItems() override { gHasAttributeAndModifierKeys = false; }
  std::vector<testing::MenuItem> items() const { return testing::readItems(*list_.get()); }
  OSStatus add(MenuItemAttributes attributes) {
    return Command_AddToAEDescList(title_.get(), fourCharCode("r2d<"), attributes, list_.get());
  }
  CFOwner<CFStringRef> title_{CFStringCreateWithBytes(nullptr, "Title", 5)};
  OwnedDescriptor list_;
};

TEST_F(MenuItems, HoldTitleNumberInFourBytesAndAttributes) {
  EXPECT_EQ(add(128), kNoErr);
  EXPECT_EQ(add(0), kNoErr);
  EXPECT_EQ(items(), (std::vector<testing::MenuItem>{{"Title", testing::command("r2d<"), 128U},
                                                     {"Title", testing::command("r2d<"), {}}}));
}

TEST_F(MenuItems, HaveNoAttributesForAHostThatKnowsNone) {
  gHasAttributeAndModifierKeys = false;
  add(128);
  EXPECT_EQ(items().front().attributes, std::nullopt);
}

TEST_F(MenuItems, KeepTheTitleAsLongAsTheList) {
  const long before = CFGetRetainCount(title_.get());
  add(0);
  EXPECT_EQ(CFGetRetainCount(title_.get()), before + 1);
  AEDisposeDesc(list_.get());
  EXPECT_EQ(CFGetRetainCount(title_.get()), before);
}

TEST_F(MenuItems, AreLeftOutWhenAStepFails) {
  const std::pair<const char*, int> steps[] = {{"AECreateList", 1},
                                               {"AEPutParamPtr", 1},
                                               {"AEPutParamPtr", 2},
                                               {"AEPutParamPtr", 3},
                                               {"AEPutDesc", 1}};
  const long before = CFGetRetainCount(title_.get());
  for (const auto& [function, nth] : steps) {
    testing::failCall(function, nth, memFullErr);
    EXPECT_EQ(add(128), kNoErr) << "the disposal's result, not the step's";
    EXPECT_TRUE(testing::stopFailing());
    EXPECT_TRUE(items().empty()) << function << nth;
    EXPECT_EQ(CFGetRetainCount(title_.get()), before) << function << nth;
  }
}

TEST_F(MenuItems, AreLeftOutOfWhatIsNoList) {
  AERecord record{typeNull, nullptr};
  AECreateList(nullptr, 0, true, &record);
  EXPECT_EQ(Command_AddToAEDescList(title_.get(), 1, 0, &record), kNoErr);
  std::int32_t count = -1;
  AECountItems(&record, &count);
  EXPECT_EQ(count, 0);
  AEDisposeDesc(&record);
}

}  // namespace
}  // namespace keldane
