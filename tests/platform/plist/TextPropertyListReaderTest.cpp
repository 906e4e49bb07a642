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
  for (const char* text : {"{", "{ a = ", "{ a = b", "{ a b }", "( a b )", "( a", "<abc>", "<xy>", "\"no end",
                           "/* no end", "  ", "a = b c", "{ a = b; } x", "=", "\"\\"}) {
    std::string error;
    EXPECT_TRUE(readText(text, &error).isAbsent()) << text;
    EXPECT_NE(error.find("at byte offset"), std::string::npos) << text << ": " << error;
  }
  EXPECT_TRUE(readText(std::string(513, '(') + std::string(513, ')')).isAbsent());
  EXPECT_TRUE(readText(std::string(512, '(') + std::string(512, ')')).isArray());
}

}  // namespace
}  // namespace keldane
