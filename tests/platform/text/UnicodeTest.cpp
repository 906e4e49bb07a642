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
  for (const char* text : {"", "abc", "é", "日本", "😀", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(isValidUtf8(text)) << text;
  }
  for (const char* text : {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                           "\xF8\x88\x80\x80\x80", "a\xFF"}) {
    EXPECT_FALSE(isValidUtf8(text)) << text;
  }
}

TEST(Unicode, MendsEachByteThatIsNoText) {
  EXPECT_EQ(validUtf8("a\xFF\xFE"
                      "b"),
            "a\xEF\xBF\xBD\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(validUtf8("日\xE6\x97"), "日\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Unicode, ConvertsThroughUtf16) {
  const std::u16string units = utf16FromUtf8("aé😀");
  EXPECT_EQ(units, u"aé😀");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\x61\x00\x3D\xD8\x00\xDE", 6), false), "a😀");
  EXPECT_EQ(utf8FromUtf16(std::string_view("\xDC\x00", 2), true), "\xEF\xBF\xBD") << "a lone low surrogate";
  EXPECT_EQ(utf8FromUtf16(std::string_view("\x00\x61\x00", 3), true), "a\xEF\xBF\xBD") << "half a unit";
}

}  // namespace
}  // namespace keldane
