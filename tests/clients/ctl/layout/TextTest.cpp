#include "clients/ctl/layout/Text.h"

#include <gtest/gtest.h>

#include <clocale>

namespace keldane {
namespace {

class TextTest : public ::testing::Test {
 protected:
  TextTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
  ~TextTest() override { std::setlocale(LC_CTYPE, "C"); }
};

TEST_F(TextTest, WideCharactersTakeTwoColumnsAndCombiningOnesNone) {
  EXPECT_EQ(columnsOf("abc"), 3U);
  EXPECT_EQ(columnsOf("äö"), 2U);
  EXPECT_EQ(columnsOf("日本"), 4U);
  EXPECT_EQ(columnsOf("e\u0301"), 1U);
}

TEST_F(TextTest, IsPaddedByColumns) {
  EXPECT_EQ(padded("日", 4), "日  ");
  EXPECT_EQ(rightAligned("日", 4), "  日");
  EXPECT_EQ(padded("long", 2), "long");
  EXPECT_EQ(rightAligned("long", 2), "long");
}

TEST_F(TextTest, OfWhatIsTooWideTheEndStays) {
  EXPECT_EQ(lastColumns("/a/b", 4), "/a/b");
  EXPECT_EQ(lastColumns("/a/b/c", 4), "…b/c");
  EXPECT_EQ(lastColumns("日本語", 4), "…語");
  EXPECT_EQ(lastColumns("abc", 1), "…");
  EXPECT_EQ(lastColumns("abc", 0), "");
}

TEST_F(TextTest, ABarFillsFromTheLeft) {
  EXPECT_EQ(bar(0, 6), "[░░░░]");
  EXPECT_EQ(bar(0.5, 6), "[██░░]");
  EXPECT_EQ(bar(0.99, 6), "[███░]") << "full is what is done";
  EXPECT_EQ(bar(1, 6), "[████]");
  EXPECT_EQ(bar(7, 6), "[████]");
  EXPECT_EQ(bar(-1, 6), "[░░░░]");
  EXPECT_EQ(bar(1, 2), "[]");
}

TEST(TextWithoutUtf8, UsesPlainCharacters) {
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(bar(0.5, 6), "[##..]");
  EXPECT_EQ(lastColumns("/a/b/c", 4), "<b/c");
}

}  // namespace
}  // namespace keldane
