#include "platform/text/Translation.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

// The languages themselves are tested end to end. A process without a locale speaks English.

constexpr KnownText kTexts[] = {
    known("%s file", "%s files"),     known("Nothing to do"),
    known("Resting: %s; %s to go"),   known("Failed: %s, as %s told"),
    knownWithNames("%s has no rule"), known("A hen lays %s egg", "Hens lay %s eggs"),
};

std::string told(std::string_view text) { return translated(text, kTexts); }

TEST(Translation, EnglishIsAsItIs) {
  EXPECT_STREQ(tr("Nothing to do"), "Nothing to do");
  EXPECT_STREQ(tr(""), "");
  EXPECT_STREQ(trn("one", "many", 1), "one");
  EXPECT_STREQ(trn("one", "many", 0), "many");
  EXPECT_EQ(localNumber("1,234.5"), "1,234.5");
}

TEST(Translation, PlacesAreFilledInTheirOrder) {
  EXPECT_EQ(filled("%s of %s", "1", std::string("2")), "1 of 2");
}

TEST(Translation, ATextThatNoneFitsStaysAsItIs) {
  for (const char* text : {"", "Something else", "Nothing to do.", "Resting: ; 3 to go", "Resting: x", "%s",
                           " file", " has no rule", "files"}) {
    EXPECT_EQ(told(text), text);
  }
}

TEST(Translation, ATextIsPutTogetherAgain) {
  for (const char* text : {"Nothing to do", "3 files", "1,234 files", "Resting: it rains; 3 files to go",
                           "Failed: Resting: a; b; c to go, as d, as e told", "a has no rule has no rule"}) {
    EXPECT_EQ(told(text), text);
  }
}

TEST(Translation, TheFormIsThatOfTheNumber) {
  EXPECT_EQ(told("Hens lay 1 eggs"), "A hen lays 1 egg");
  EXPECT_EQ(told("A hen lays 2 egg"), "Hens lay 2 eggs");
  EXPECT_EQ(told("Failed: Hens lay 1 eggs, as Hens lay 1 eggs told"),
            "Failed: A hen lays 1 egg, as A hen lays 1 egg told");
  EXPECT_EQ(told("Hens lay many eggs"), "Hens lay many eggs") << "which is about no number";
  EXPECT_EQ(told("Hens lay 99999999999999999999999 eggs"), "Hens lay 99999999999999999999999 eggs");
}

TEST(Translation, NamesAreLeftAlone) {
  EXPECT_EQ(told("Hens lay 1 eggs has no rule"), "Hens lay 1 eggs has no rule");
}

TEST(Translation, TextsWithinTextsEndSomewhere) {
  std::string text;
  for (int i = 0; i < 1000; ++i) {
    text += "Failed: ";
  }
  EXPECT_EQ(told(text + ", as x told"), text + ", as x told");
}

}  // namespace
}  // namespace keldane
