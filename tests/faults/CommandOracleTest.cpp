#include "tests/tools/faults/CommandOracle.h"

#include <gtest/gtest.h>

#include "tests/support/process/RawPeer.h"

namespace keldane::testing {
namespace {

std::string requestFrame(const std::string& selector, const std::string& path) {
  return RawConnection::frame(
      1, RawConnection::payloadOf(PropertyList::array({0, "v", selector, 1, "@", path})));
}

const Orders kTwo = ordersOf(kBackupASAP, {"/a", "/b"});

TEST(OrdersOf, ACommandAreItsMessagesPathByPath) {
  EXPECT_EQ(kTwo, (Orders{{"addFileToBackup:", "/a"},
                          {"setPriorityBackup:", "/a"},
                          {"addFileToBackup:", "/b"},
                          {"setPriorityBackup:", "/b"}}));
  EXPECT_EQ(ordersOf(kBackup, {"/a"}), (Orders{{"addFileToBackup:", "/a"}}));
  EXPECT_EQ(ordersOf(kExclude, {"/a", "/b"}),
            (Orders{{"removeFileFromBackup:", "/a"}, {"removeFileFromBackup:", "/b"}}));
  EXPECT_EQ(ordersOf(kNoCommand, {"/a"}), Orders());
}

TEST(OrdersIn, AStreamAreWhatCanBeReadInIt) {
  const std::string stream = requestFrame("dictionaryForPath:", "/a") +
                             requestFrame("addFileToBackup:", "/a") + std::string(72, '?') +
                             RawConnection::frame(1, "no list") + RawConnection::frame(2, "") +
                             requestFrame("setPriorityBackup:", "/a");
  EXPECT_EQ(ordersIn(stream), ordersOf(kBackupASAP, {"/a"}));
  EXPECT_EQ(ordersIn(stream.substr(0, stream.size() - 1)), ordersOf(kBackup, {"/a"}));
}

TEST(AsksAfterOrder, LooksForAQuestionBehindAnOrder) {
  const std::string question = requestFrame("dictionaryForPath:", "/a");
  const std::string order = requestFrame("addFileToBackup:", "/a");
  EXPECT_FALSE(asksAfterOrder(""));
  EXPECT_FALSE(asksAfterOrder(question + question));
  EXPECT_FALSE(asksAfterOrder(question + order + order));
  EXPECT_TRUE(asksAfterOrder(question + order + question));
}

TEST(Misdelivery, IsWhatAPlanExcludes) {
  const Orders none;
  const Orders beginning(kTwo.begin(), kTwo.begin() + 2);
  const Orders second(kTwo.begin() + 1, kTwo.begin() + 2);
  const Orders turned = {kTwo[1], kTwo[0]};
  const Orders twice = {kTwo[0], kTwo[0], kTwo[1], kTwo[2], kTwo[3]};
  const Orders foreign = {{"removeFileFromBackup:", "/a"}};
  struct Case {
    const char* plan;
    std::vector<Orders> possible;
    std::vector<Orders> impossible;
  };
  const Case cases[] = {{"requests split 0 9", {kTwo}, {none, beginning, second, turned, twice, foreign}},
                        {"answers flip 9 1", {kTwo, none, beginning}, {second, turned, twice, foreign}},
                        {"requests cut 9 1", {kTwo, none, beginning, second}, {turned, twice, foreign}},
                        {"requests repeat 0 0", {kTwo, none, beginning, second, turned, twice}, {foreign}},
                        {"requests flip 9 1", {kTwo, none, foreign}, {}}};
  for (const auto& [text, possible, impossible] : cases) {
    const FaultPlan plan = FaultPlan::parse(text).value();
    for (std::size_t i = 0; i < possible.size(); ++i) {
      EXPECT_EQ(misdelivery(plan, possible[i], kTwo), "") << text << ", " << i;
    }
    for (std::size_t i = 0; i < impossible.size(); ++i) {
      EXPECT_NE(misdelivery(plan, impossible[i], kTwo), "") << text << ", " << i;
    }
  }
}

TEST(PossibleStandings, AreOneWhenEachOrderWasCarriedOut) {
  using enum Standing;
  EXPECT_EQ(possibleStandings({}, "/a", true), std::set{leftOut});
  EXPECT_EQ(possibleStandings({kTwo[0]}, "/a", true), std::set{included});
  EXPECT_EQ(possibleStandings(kTwo, "/a", true), std::set{preferred});
  EXPECT_EQ(possibleStandings(kTwo, "/c", true), std::set{leftOut}) << "they are about others";
  EXPECT_EQ(possibleStandings({kTwo[1], kTwo[0]}, "/a", true), std::set{included})
      << "only what is included is preferred";
  EXPECT_EQ(possibleStandings({kTwo[0], kTwo[1], kTwo[0]}, "/a", true), std::set{preferred});
}

TEST(PossibleStandings, AreSeveralWhenOrdersMayHaveBeenPassedOver) {
  using enum Standing;
  EXPECT_EQ(possibleStandings(kTwo, "/a", false), (std::set{leftOut, included, preferred}));
  EXPECT_EQ(possibleStandings({kTwo[1], kTwo[0]}, "/a", false), (std::set{leftOut, included}));
  EXPECT_EQ(possibleStandings({kTwo[1]}, "/a", false), std::set{leftOut});
}

}  // namespace
}  // namespace keldane::testing
