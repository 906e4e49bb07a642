#include <gtest/gtest.h>

#include <cmath>

#include "tests/platform/plist/Documents.h"
#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::document;
using testing::Format;
using testing::nested;
using testing::read;
using testing::readText;

TEST(XmlReader, ReadsEveryElement) {
  const PropertyList value = readText(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<!-- a comment --><plist version="1.0"><dict>
  <key>s</key><string>a &lt;b&gt; &amp; &quot;c&quot; &apos;d&apos; &#65;&#x1F600;<![CDATA[<raw & text>]]><!-- in text --></string>
  <key>i</key><integer>-12</integer><key>h</key><integer>0xFF</integer><key>u</key><integer>18446744073709551615</integer>
  <key>r</key><real>2.5e1</real><key>n</key><real>nan</real><key>inf</key><real>-infinity</real>
  <key>t</key><true/><key>f</key><false></false>
  <key>d</key><date>2026-11-21T04:37:12Z</date>
  <key>b</key><data> 3q2+
     7w== </data>
  <key>a</key><array><string/><array/><dict/></array>
</dict></plist>
)");
  EXPECT_EQ(value["s"].string(), "a <b> & \"c\" 'd' A😀<raw & text>");
  EXPECT_EQ(value["i"].intValue(), -12);
  EXPECT_EQ(value["h"].intValue(), 255);
  EXPECT_EQ(value["u"].unsignedLongLongValue(), UINT64_MAX);
  EXPECT_EQ(value["r"].doubleValue(), 25);
  EXPECT_TRUE(std::isnan(value["n"].doubleValue()));
  EXPECT_TRUE(std::isinf(value["inf"].doubleValue()));
  EXPECT_TRUE(value["t"].boolValue());
  EXPECT_EQ(value["f"].numberKind(), PropertyList::NumberKind::boolean);
  EXPECT_EQ(value["d"].date().unixTime(), 1795235832);
  EXPECT_EQ(value["b"].description(), "<deadbeef>");
  EXPECT_EQ(value["a"].count(), 3U);
}

TEST(XmlReader, ReadsTextInUtf16AndWithAMark) {
  Bytes utf16 = {0xFE, 0xFF};
  for (const char c : std::string_view("<plist><string>ok</string></plist>")) {
    utf16.push_back(0);
    utf16.push_back(static_cast<std::uint8_t>(c));
  }
  EXPECT_EQ(read(utf16).string(), "ok");
  EXPECT_EQ(readText("\xEF\xBB\xBF<string>ok</string>").string(), "ok");
}

TEST(XmlReader, RefusesWhatIsMalformedWithASentenceAndAnOffset) {
  for (const char* text : {
           "<plist>",
           "<plist/>",
           "<plist><dict><string>x</string></dict></plist>",
           "<plist><dict><key>k</key></dict></plist>",
           "<plist><string>x</plist>",
           "<plist><integer>1x</integer></plist>",
           "<plist><integer>99999999999999999999</integer></plist>",
           "<plist><real>x</real></plist>",
           "<plist><date>yesterday</date></plist>",
           "<plist><data>*</data></plist>",
           "<plist><data>A</data></plist>",
           "<plist><string>&unknown;</string></plist>",
           "<plist><string>&#0;</string></plist>",
           "<plist><string>&#xD800;</string></plist>",
           "<plist><string>&amp</string></plist>",
           "<plist><wrong/></plist>",
           "<plist><!-- no end",
           "<?xml no end",
           "<plist><string><![CDATA[x</string></plist>",
           "<plist><string>x</string></plist>more",
           "<!DOCTYPE plist [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>",
           "<plist><array><string>x</string>",
       }) {
    std::string error;
    EXPECT_TRUE(readText(text, &error).isAbsent()) << text;
    EXPECT_NE(error.find("at byte offset"), std::string::npos) << text << ": " << error;
  }
}

TEST(XmlReader, RefusesNestingBeyondItsLimit) {
  const auto nestedText = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) {
      text += "<array>";
    }
    for (int i = 0; i < depth; ++i) {
      text += "</array>";
    }
    return text;
  };
  EXPECT_TRUE(readText(nestedText(512)).isArray());
  EXPECT_TRUE(readText(nestedText(513)).isAbsent());
  EXPECT_TRUE(readText(nestedText(100000)).isAbsent());
}

TEST(XmlWriter, WritesADocumentThatPeopleCanRead) {
  std::string error;
  const auto bytes = PropertyListSerialization::dataFromPropertyList(
      PropertyList::dictionary({{"k", PropertyList::array({"a<b", 1, true})}}), Format::xml, &error);
  const std::string text(bytes->begin(), bytes->end());
  EXPECT_NE(
      text.find("<plist version=\"1.0\">\n<dict>\n\t<key>k</key>\n\t<array>\n\t\t<string>a&lt;b</string>\n"
                "\t\t<integer>1</integer>\n\t\t<true/>\n\t</array>\n</dict>\n</plist>\n"),
      std::string::npos)
      << text;
}

TEST(XmlWriter, ReplacesWhatXmlCannotHoldAndRefusesWhatHasNoEnd) {
  std::string error;
  const auto bytes =
      PropertyListSerialization::dataFromPropertyList(std::string("a\x01z\xFF"), Format::xml, &error);
  EXPECT_EQ(read(*bytes).string(), "a\xEF\xBF\xBDz\xEF\xBF\xBD");
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(nested(513), Format::xml, &error));
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(Date{1e300}, Format::xml, &error));
}

TEST(XmlReader, QuotesHideTheEndOfATagAndOfADocumentType) {
  for (const char* text :
       {"<!DOCTYPE plist PUBLIC \"a>[b'\" 'c>[d\"'><plist version=\"1>0\"><string "
        "id='/>\"<'>x</string></plist>",
        "<plist a='<' b=\">\"><string>x</string></plist>", "<string a=\"'\" b='\"'>x</string>"}) {
    std::string error;
    EXPECT_EQ(readText(text, &error), PropertyList("x")) << text << ": " << error;
  }
  for (const char* text : {"<string a=\">x</string>", "<string a='>x</string>", "<string a=\"'>x</string>",
                           "<string <>x</string>", "<string", "<", "<!DOCTYPE plist \"><string>x</string>"}) {
    EXPECT_TRUE(readText(text).isAbsent()) << text;
  }
}

TEST(XmlReader, ValuesMayStandBetweenBlanks) {
  EXPECT_EQ(readText("<integer>\n 5\t</integer>").longLongValue(), 5);
  EXPECT_EQ(readText("<real> 0.5 </real>").doubleValue(), 0.5);
}

TEST(XmlReader, WhatHasNoEndCannotBeRead) {
  std::string error;
  EXPECT_TRUE(readText("<!DOCTYPE plist SYSTEM \"x\"", &error).isAbsent());
  EXPECT_NE(error.find("The document type has no end"), std::string::npos) << error;
  EXPECT_TRUE(readText("<string <integer>1</integer>", &error).isAbsent());
}

}  // namespace
}  // namespace keldane
