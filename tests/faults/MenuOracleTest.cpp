#include "tests/tools/faults/MenuOracle.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/RawPeer.h"

namespace keldane::testing {
namespace {

std::string answerFrame(const PropertyList& value) {
  return RawConnection::frame(2, value ? RawConnection::payloadOf(value) : "");
}

ConnectionReport received(const std::string& bytes) { return {true, 9, 0, bytes, ""}; }

Answers only(const ConnectionReport& report) {
  const std::vector<Answers> possible = possibleAnswers(report);
  EXPECT_EQ(possible.size(), 1U);
  return possible.front();
}

TEST(PossibleAnswers, AreTheResponsesInTheirOrder) {
  EXPECT_EQ(only(received(answerFrame(1) + answerFrame({}) + answerFrame("x"))), (Answers{1, {}, "x"}));
  EXPECT_EQ(only(received("")), Answers());
}

TEST(PossibleAnswers, AreFoundBehindWholeStepsOnly) {
  EXPECT_EQ(only(received(std::string(72, '?') + answerFrame(1))), Answers{1});
  EXPECT_EQ(only(received(std::string(71, '?') + answerFrame(1))), Answers());
}

TEST(PossibleAnswers, AreAbsentWhenTheyCannotBeRead) {
  EXPECT_EQ(only(received(RawConnection::frame(2, "bplist00 no such") + answerFrame(1))), (Answers{{}, 1}));
}

TEST(PossibleAnswers, EndWithAMessageThatIsNotWhole) {
  const std::string two = answerFrame(1) + answerFrame(2);
  EXPECT_EQ(only(received(two.substr(0, two.size() - 1))), Answers{1});
}

TEST(PossibleAnswers, AreNoRequestsAndAbsentForOtherTypes) {
  EXPECT_EQ(only(received(RawConnection::frame(1, "") + RawConnection::frame(3, "x") + answerFrame(1))),
            (Answers{{}, 1}));
}

TEST(PossibleAnswers, MayLackWhatFailedBeforeTheFirstQuestion) {
  ConnectionReport report = received(RawConnection::frame(3, "") + answerFrame(1));
  report.early = 44;
  EXPECT_EQ(possibleAnswers(report), (std::vector<Answers>{{{}, 1}, {1}}));
}

TEST(PossibleAnswers, MayLackWhatTheClientCouldNoLongerAskFor) {
  ConnectionReport report = received(answerFrame(1) + answerFrame(2) + answerFrame(3));
  report.endedByClient = false;
  report.requests = 1;
  EXPECT_EQ(possibleAnswers(report), (std::vector<Answers>{{1}, {1, 2}, {1, 2, 3}}));
}

class MenuFor : public ::testing::Test {
 protected:
  static PropertyList node(std::uint32_t flags, bool isFolder = false) {
    return PropertyList::dictionary({{"simpleFlags", flags}, {"isDirectory", isFolder}, {"state", "New"}});
  }
  /// The answers about a file that stays the same.
  static Answers file(const PropertyList& one) { return {one, one, 0, one, one, one}; }

  TemporaryFolder folder_;
  const std::string file_ = folder_.write("a.txt", "");
  const std::vector<std::string> nothing_ = {"-", "-", "Open Keldane Preferences…"};
};

TEST_F(MenuFor, NoAnswersHasTheFixedItems) { EXPECT_EQ(menuFor({file_}, {}), nothing_); }

TEST_F(MenuFor, AFileOffersWhatItsFlagsSay) {
  const std::string prefs = "Open Keldane Preferences…";
  EXPECT_EQ(menuFor({file_}, file(node(2))),
            (std::vector<std::string>{"Status: New", "-", "Back This Up", "-", prefs}));
  EXPECT_EQ(menuFor({file_}, file(node(3))),
            (std::vector<std::string>{"Status: New", "-", "Don't Back This Up", "-", prefs}));
  EXPECT_EQ(menuFor({file_}, file(node(0x60006))),
            (std::vector<std::string>{"Status: New", "-", "Back This Up", "Don't Back This Up",
                                      "Back Up This File As Soon As Possible", "-", prefs}));
}

TEST_F(MenuFor, AnItemThatIsBarredIsNone) { EXPECT_EQ(menuFor({file_}, file(node(0))), std::nullopt); }

TEST_F(MenuFor, AnAnswerThatIsNoNodeIsOneWithoutFlags) { EXPECT_EQ(menuFor({file_}, {5}), std::nullopt); }

TEST_F(MenuFor, AFolderIsAskedAboutLess) {
  const PropertyList one = node(2, true);
  EXPECT_EQ(menuFor({folder_.path().string()}, {one, one, one, one}),
            (std::vector<std::string>{"Status: New", "-", "Back This Up", "Don't Back This Up", "-",
                                      "Open Keldane Preferences…"}));
}

TEST_F(MenuFor, WhatIsMissingIsMissingFromThereOn) {
  const PropertyList one = node(2);
  EXPECT_EQ(menuFor({file_}, {one, one, 0, one, one}),
            (std::vector<std::string>{"-", "Back This Up", "-", "Open Keldane Preferences…"}));
  EXPECT_EQ(menuFor({file_}, {one, one, 0, one}), nothing_);
}

TEST(Contradiction, IsWhatAnEffectExcludes) {
  const Answers clean = {1, "x", {}};
  EXPECT_EQ(contradiction(Effect::whole, clean, clean), "");
  EXPECT_NE(contradiction(Effect::whole, {1, "x"}, clean), "");
  EXPECT_EQ(contradiction(Effect::missing, {1, "x"}, clean), "");
  EXPECT_NE(contradiction(Effect::missing, {"x"}, clean), "");
  EXPECT_NE(contradiction(Effect::missing, {1, "x", {}, 1}, clean), "");
  EXPECT_EQ(contradiction(Effect::misplaced, {"x", "x", 1, {}, {}}, clean), "");
  EXPECT_NE(contradiction(Effect::misplaced, {1, "y"}, clean), "");
  EXPECT_EQ(contradiction(Effect::altered, {"y"}, clean), "");
}

}  // namespace
}  // namespace keldane::testing
