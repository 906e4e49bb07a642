#include "platform/text/Unicode.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(Unicode, FindsTheOneByteThatIsNotAscii) {
  for (std::size_t size = 0; size <= 40; ++size) {
    std::string text(size, 'x');
    EXPECT_TRUE(isAscii(text)) << size;
    for (char& byte : text) {
      byte = '\x80';
      EXPECT_FALSE(isAscii(text)) << size;
      byte = 'x';
    }
  }
}

TEST(Unicode, KnowsValidText) {
  for (const char* text : {"", "abc", "é", "日本", "😀"}) {
    EXPECT_TRUE(isValidUtf8(text)) << text;
  }
  for (const char* text : {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                           "\xF8\x88\x80\x80\x80", "a\xFF"}) {
    EXPECT_FALSE(isValidUtf8(text)) << text;
  }
}

TEST(Unicode, KnowsTheFirstAndTheLastCharacterOfEachLength) {
  const auto character = [](std::string_view utf8) {
    bool valid = true;
    std::size_t position = 0;
    const char32_t read = nextCharacter(utf8, position, valid);
    EXPECT_EQ(valid ? utf8.size() : 1, position);
    return valid ? std::optional(read) : std::nullopt;
  };
  EXPECT_EQ(character("\x7F"), 0x7FU);
  EXPECT_EQ(character("\xC2\x80"), 0x80U);
  EXPECT_EQ(character("\xDF\xBF"), 0x7FFU);
  EXPECT_EQ(character("\xE0\xA0\x80"), 0x800U);
  EXPECT_EQ(character("\xED\x9F\xBF"), 0xD7FFU);
  EXPECT_EQ(character("\xEE\x80\x80"), 0xE000U);
  EXPECT_EQ(character("\xEF\xBF\xBF"), 0xFFFFU);
  EXPECT_EQ(character("\xF0\x90\x80\x80"), 0x10000U);
  EXPECT_EQ(character("\xF4\x8F\xBF\xBF"), 0x10FFFFU);
  for (const char* text : {"\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
                           "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3(", "\xE6\x97"}) {
    EXPECT_EQ(character(text), std::nullopt) << text;
  }
}

TEST(Unicode, MendsEachByteThatIsNoText) {
  EXPECT_EQ(validUtf8("a\xFF\xFE"
                      "b"),
            "a\xEF\xBF\xBD\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(validUtf8("日\xE6\x97"), "日\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Unicode, AppendsCharactersOfEachLengthAndMarksWhatIsNone) {
  const auto appended = [](char32_t character) {
    std::string text = "<";
    appendUtf8(text, character);
    return text;
  };
  EXPECT_EQ(appended(0x7F), "<\x7F");
  EXPECT_EQ(appended(0x80), "<\xC2\x80");
  EXPECT_EQ(appended(0x7FF), "<\xDF\xBF");
  EXPECT_EQ(appended(0x800), "<\xE0\xA0\x80");
  EXPECT_EQ(appended(0xD7FF), "<\xED\x9F\xBF");
  EXPECT_EQ(appended(0xE000), "<\xEE\x80\x80");
  EXPECT_EQ(appended(0xFFFF), "<\xEF\xBF\xBF");
  EXPECT_EQ(appended(0x10000), "<\xF0\x90\x80\x80");
  EXPECT_EQ(appended(0x10FFFF), "<\xF4\x8F\xBF\xBF");
  for (const char32_t none : {0xD800U, 0xDFFFU, 0x110000U}) {
    EXPECT_EQ(appended(none), "<\xEF\xBF\xBD") << std::uint32_t{none};
  }
}

TEST(Unicode, ConvertsThroughUtf16) {
  const std::u16string units = utf16FromUtf8("aé😀");
  EXPECT_EQ(units, u"aé😀");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\x61\x00\x3D\xD8\x00\xDE", 6), false), "a😀");
  EXPECT_EQ(utf16FromUtf8("\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"), u"\uFFFF\U00010000\U0010FFFF");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xD8\x00\xDC\x00\xDB\xFF\xDF\xFF", 8), true),
            "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xD7\xFF\xDC\x00", 4), true), "\xED\x9F\xBF\xEF\xBF\xBD");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xD8\x00\xE0\x00", 4), true), "\xEF\xBF\xBD\xEE\x80\x80");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xD8\x00\xDB\xFF", 4), true), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xD8\x00", 2), true), "\xEF\xBF\xBD") << "a lone high surrogate";
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xDC\x00", 2), true), "\xEF\xBF\xBD") << "a lone low surrogate";
  EXPECT_EQ(utf8FromUtf16(std::string_view("\x00\x61\x00", 3), true), "a\xEF\xBF\xBD") << "half a unit";
}

}  // namespace
}  // namespace keldane
