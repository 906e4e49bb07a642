#include <gtest/gtest.h>

#include "tests/platform/plist/Documents.h"
#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::readText;

TEST(TextReader, ReadsTheOldFormat) {
  const PropertyList value = readText(R"(// a comment
{ name = a.txt; "with blank" = "say \"hi\"\n\U00e9\101"; list = (1, two, (x),); data = <dead BEEF>; empty = {}; none = (); /* done */ })");
  EXPECT_EQ(value["name"].string(), "a.txt");
  EXPECT_EQ(value["with blank"].string(), "say \"hi\"\néA");
  EXPECT_EQ(value["list"].count(), 3U);
  EXPECT_EQ(value["data"].description(), "<deadbeef>");
  EXPECT_TRUE(value["empty"].isDictionary());
  EXPECT_TRUE(value["none"].isArray());
  EXPECT_EQ(readText("word").string(), "word");
  EXPECT_EQ(readText("\"\\Ud83d\\Ude00\"").string(), "😀");
}

TEST(TextReader, ReadsWhatABackslashStandsFor) {
  EXPECT_EQ(readText(R"("\r\a\b\f\v\n\t\"\\")").string(), "\r\a\b\f\v\n\t\"\\");
  EXPECT_EQ(readText(R"("\101\7")").string(), "A\a");
  EXPECT_TRUE(readText(R"("\Ud83d\u0041")").string().ends_with('A')) << "half a pair takes nothing along";
}

TEST(TextReader, ReadsAStringsTable) {
  const PropertyList value =
      readText("/* Menu */\n\"Back up This File\" = \"Sichern\";\nalone;\n'single' = 'x';\n");
  EXPECT_EQ(value["Back up This File"].string(), "Sichern");
  EXPECT_EQ(value["alone"].string(), "alone");
  EXPECT_EQ(value["single"].string(), "x");
}

TEST(TextReader, RefusesWhatIsMalformedWithASentenceAndAnOffset) {
  const std::pair<const char*, const char*> cases[] = {
      {"{", "A string is missing at byte offset 1"},
      {"{ a = ", "A value is missing at byte offset 6"},
      {"{ a = b", "A semicolon is missing after an entry at byte offset 7"},
      {"{ a b }", "A semicolon is missing after an entry at byte offset 4"},
      {"( a b )", "A comma is missing between elements at byte offset 4"},
      {"( a", "A comma is missing between elements at byte offset 3"},
      {"( a,", "A value is missing at byte offset 4"},
      {"<abc>", "Data is not in pairs of hexadecimal digits at byte offset 0"},
      {"( <xy> )", "Data is not in pairs of hexadecimal digits at byte offset 2"},
      {"( <00", "Data is not in pairs of hexadecimal digits at byte offset 2"},
      {"\"no end", "A quoted string has no end at byte offset 0"},
      {"a = 'no end", "A quoted string has no end at byte offset 4"},
      {"x /* no end", "A comment has no end at byte offset 2"},
      {"x /*/", "A comment has no end at byte offset 2"},
      {"  ", "The text holds no property list at byte offset 2"},
      {"// c", "The text holds no property list at byte offset 4"},
      {"a = b c", "A semicolon is missing after an entry at byte offset 6"},
      {"{ a = b; } x", "Something follows the end of the property list at byte offset 11"},
      {"=", "A string is missing at byte offset 0"},
      {"\"\\", "A quoted string has no end at byte offset 0"},
  };
  for (const auto& [text, sentence] : cases) {
    std::string error;
    EXPECT_TRUE(readText(text, &error).isAbsent()) << text;
    EXPECT_TRUE(error.starts_with(sentence)) << text << ": " << error;
  }
  EXPECT_TRUE(readText(std::string(513, '(') + std::string(513, ')')).isAbsent());
  EXPECT_TRUE(readText(std::string(512, '(') + std::string(512, ')')).isArray());
}

TEST(TextReader, PassesOverBlanksAndCommentsWhereverTheyStand) {
  EXPECT_EQ(readText("/**/ ( a /* ( */ , // ,\r b // end\n ) // last"), PropertyList::array({"a", "b"}));
  EXPECT_EQ(readText("{ a /**/ = /**/ b /**/ ; /**/ }"), PropertyList::dictionary({{"a", "b"}}));
  EXPECT_EQ(readText("< 0 1\t2\n3 >"), PropertyList::data(Bytes{0x01, 0x23}));
  EXPECT_EQ(readText("<09afAF>"), PropertyList::data(Bytes{0x09, 0xAF, 0xAF}));
  EXPECT_EQ(readText("{ a; b = ( ); c }"),
            PropertyList::dictionary({{"a", "a"}, {"b", PropertyList::array({})}, {"c", "c"}}));
}

TEST(TextReader, EscapesTakeNoMoreDigitsThanTheyCan) {
  EXPECT_EQ(readText(R"("\1018\8\18\377")").string(),
            "A88\1"
            "8\xC3\xBF");
  EXPECT_EQ(readText(R"("\U00419\u41g\U")").string(), std::string("A9Ag\0", 5));
  EXPECT_EQ(readText(R"("\ud800\udc00\udbff\udfff")").string(), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(readText(R"("\ud800\ue000")").string(), "\xEF\xBF\xBD\xEE\x80\x80");
  EXPECT_EQ(readText(R"("\ud800\ud800")").string(), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(readText(R"("\ud800\x\ud800")").string(), "\xEF\xBF\xBDx\xEF\xBF\xBD");
  EXPECT_EQ(readText(R"("\udc00\ud7ff")").string(), "\xEF\xBF\xBD\xED\x9F\xBF");
}

}  // namespace
}  // namespace keldane
