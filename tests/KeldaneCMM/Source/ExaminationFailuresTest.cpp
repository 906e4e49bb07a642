// Tests with a failing step while the menu is built.
#include <gtest/gtest.h>

#include <map>

#include "tests/KeldaneCMM/Source/FailingCalls.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

using testing::Selection;

constexpr std::uint32_t kMayBeBackedUp = 2;

class ExaminationFailures : public testing::MenuTest {};

TEST_F(ExaminationFailures, AnswersTheErrorOfACommandListThatTakesNothing) {
  const Selection selection({know(file("a"), node(kMayBeBackedUp))});
  AERecord record{typeNull, nullptr};
  AECreateList(nullptr, 0, true, &record);
  const long before = CFGetLiveObjectCount();
  EXPECT_EQ(KeldanePlugin_ExamineContext(instance_, selection.get(), &record), errAEWrongDataType);
  EXPECT_EQ(KeldanePlugin_ExamineContext(instance_, selection.get(), nullptr), kParamErr);
  EXPECT_EQ(CFGetLiveObjectCount(), before);
  AEDisposeDesc(&record);
}

/// Makes each call of each function fail in turn and checks the result for the host.
class FailingStep : public ExaminationFailures, public ::testing::WithParamInterface<const char*> {};

TEST_P(FailingStep, LeavesOutOneItemOrTheWholeMenuAndLeaksNothing) {
  const std::string path = know(file("a"), node(0x60006));
  const Selection selection({path});
  ASSERT_EQ(examine(selection.get()), kNoErr);
  const std::size_t whole = menu()->items.size();
  AEDisposeDesc(commands_.get());
  const long titlesBefore = CFGetLiveObjectCount();

  constexpr OSErr kError = -1708;
  int itemsLeftOut = 0;
  int menusLeftOut = 0;
  bool failed = true;
  for (int nth = 1; failed; ++nth) {
    OwnedDescriptor list;
    // The host's own list is made before anything fails.
    AECreateList(nullptr, 0, false, list.get());
    testing::failCall(GetParam(), nth, kError);
    const OSStatus status = KeldanePlugin_ExamineContext(instance_, selection.get(), list.get());
    failed = testing::stopFailing();
    std::int32_t count = -1;
    AECountItems(list.get(), &count);
    if (status != kNoErr) {
      EXPECT_EQ(status, kError);
      EXPECT_EQ(count, 0) << "never half a menu";
      ++menusLeftOut;
    } else {
      ASSERT_EQ(count, 1);
      std::swap(*commands_.get(), *list.get());
      EXPECT_EQ(menu()->items.size(), failed ? whole - 1 : whole) << nth;
      itemsLeftOut += failed ? 1 : 0;
      std::swap(*commands_.get(), *list.get());
    }
    AEDisposeDesc(list.get());
    EXPECT_EQ(CFGetLiveObjectCount(), titlesBefore) << nth;
  }
  const std::map<std::string, std::pair<int, int>> expected = {
      {"AECreateList", {7, 2}},  // one record for each item; the list and the parent's record
      {"AEPutParamPtr",
       {17, 3}},  // title and number for each item, attributes for three; the same for the parent
      {"AEPutDesc", {7, 1}},
      {"AEPutParamDesc", {0, 1}}};
  EXPECT_EQ(std::make_pair(itemsLeftOut, menusLeftOut), expected.at(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(ExaminationFailures, FailingStep,
                         ::testing::Values("AECreateList", "AEPutParamPtr", "AEPutDesc", "AEPutParamDesc"),
                         [](const auto& function) { return std::string(function.param); });

}  // namespace
}  // namespace keldane
