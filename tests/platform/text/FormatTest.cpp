#include "platform/text/Format.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(Format, ConvertsAsCDoes) {
  EXPECT_EQ(stringWithFormat("%d %i %u %ld %lu %lld %llu", -1, 2, 3U, -4L, 5UL, -6LL, 7ULL),
            "-1 2 3 -4 5 -6 7");
  EXPECT_EQ(stringWithFormat("%x %X 0x%8.8lx %o", 255, 255, 0x20000U, 8), "ff FF 0x00020000 10");
  EXPECT_EQ(stringWithFormat("[%5d|%-5d|%05d|%+d]", 42, 42, 42, 42), "[   42|42   |00042|+42]");
  EXPECT_EQ(stringWithFormat("%c%c", 'A', 0x1F600), "A😀");
  EXPECT_EQ(stringWithFormat("%.2f %g", 1.005, 2.5), "1.00 2.5");
  EXPECT_EQ(stringWithFormat("%s|%5s|%-5s|%.2s", "abc", "ab", "ab", "abcdef"), "abc|   ab|ab   |ab");
  EXPECT_EQ(stringWithFormat("100%% of %zu", std::size_t{3}), "100% of 3");
}

TEST(Format, DescribesObjects) {
  EXPECT_EQ(stringWithFormat("%@ %@ %@", "text", PropertyList(5), PropertyList()), "text 5 (null)");
  EXPECT_EQ(stringWithFormat("%@", PropertyList::array({"a"})), "(\n    a\n)");
}

TEST(Format, ANegativeNumberPrintsItsOwnWidthInHexadecimal) {
  EXPECT_EQ(stringWithFormat("%x", std::int32_t{-1}), "ffffffff");
  EXPECT_EQ(stringWithFormat("%x", std::int8_t{-1}), "ff");
  EXPECT_EQ(stringWithFormat("%u", std::int64_t{-1}), "18446744073709551615");
}

TEST(Format, AWrongArgumentPrintsAsWhatItIs) {
  EXPECT_EQ(stringWithFormat("%s", 5), "5");
  EXPECT_EQ(stringWithFormat("%d", "text"), "text");
  EXPECT_EQ(stringWithFormat("%f", 3), "3");
  EXPECT_EQ(stringWithFormat("%d", 2.5), "2.5");
  EXPECT_EQ(stringWithFormat("%x", PropertyList("object")), "object");
}

TEST(Format, MissingArgumentsPrintNothingThatIsNotTheirs) {
  EXPECT_EQ(stringWithFormat("%s %@ %d %f"), "(null) (null) 0 0.000000");
  EXPECT_EQ(stringWithFormat("%s", static_cast<const char*>(nullptr)), "(null)");
}

TEST(Format, UnknownConversionsStandAsTheyAre) {
  EXPECT_EQ(stringWithFormat("%n %y %", 1), "%n %y %");
  EXPECT_EQ(stringWithFormat("%-", 1), "%-");
  EXPECT_EQ(stringWithFormat("%l", 1), "%l");
}

TEST(Format, LeftOverArgumentsAreIgnored) { EXPECT_EQ(stringWithFormat("a", 1, 2), "a"); }

TEST(Format, AHugeFieldIsCapped) {
  EXPECT_LE(stringWithFormat("%999999999999d", 1).size(), 5000U);
  EXPECT_LE(stringWithFormat("%.999999999999f", 1.0).size(), 5000U);
  EXPECT_LE(stringWithFormat("%999999999s", "x").size(), 5000U);
}

TEST(Format, BooleansPrintAsNumbers) { EXPECT_EQ(stringWithFormat("%d%d", true, false), "10"); }

}  // namespace
}  // namespace keldane
