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
  <key>t</key><true/><key>f</key><false> <!-- nothing --> </false>
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
  const std::pair<const char*, const char*> cases[] = {
      {"<plist>", "An element is missing"},
      {"<plist/>", "The plist element is empty"},
      {"<plist></plist>", "An element is missing"},
      {"<?xml?></plist>", "An element is missing"},
      {"<plist><dict><string>x</string></dict></plist>", "A key is missing in a dictionary"},
      {"<plist><dict><key>k</key></dict></plist>", "A key has no value"},
      {"<plist><string>x</plist>", "The end of the element \"string\" is missing"},
      {"<plist><string>x</strin></plist>", "The end of the element \"string\" is missing"},
      {"<plist><string>x</string x></plist>", "The end of the element \"string\" is missing"},
      {"<plist><true></false></plist>", "The end of the element \"true\" is missing"},
      {"<plist><integer>1x</integer></plist>", "An integer is not made of digits"},
      {"<plist><integer></integer></plist>", "An integer is not made of digits"},
      {"<plist><integer>99999999999999999999</integer></plist>", "An integer does not fit 64 bits"},
      {"<plist><integer>-9223372036854775809</integer></plist>", "An integer does not fit 64 bits"},
      {"<plist><real>x</real></plist>", "A real is no number"},
      {"<plist><real>1.5x</real></plist>", "A real is no number"},
      {"<plist><real>++1</real></plist>", "A real is no number"},
      {"<plist><date>yesterday</date></plist>", "A date is not of the form"},
      {"<plist><date>2001-01-31T12:00:00X</date></plist>", "A date is not of the form"},
      {"<plist><date>2001-01-3:T12:00:00Z</date></plist>", "A date is not of the form"},
      {"<plist><data>*</data></plist>", "Data is not in base64"},
      {"<plist><data>A</data></plist>", "Data is not in base64"},
      {"<plist><data>AA=A</data></plist>", "Data is not in base64"},
      {"<plist><data>A===</data></plist>", "Data is not in base64"},
      {"<plist><data>AA===</data></plist>", "Data is not in base64"},
      {"<plist><string>&unknown;</string></plist>", "There is no entity \"unknown\""},
      {"<plist><string>&#0;</string></plist>", "There is no entity \"#0\""},
      {"<plist><string>&#;</string></plist>", "There is no entity \"#\""},
      {"<plist><string>&#1x;</string></plist>", "There is no entity \"#1x\""},
      {"<plist><string>&#xD800;</string></plist>", "There is no entity \"#xD800\""},
      {"<plist><string>&#xDFFF;</string></plist>", "There is no entity \"#xDFFF\""},
      {"<plist><string>&#x110000;</string></plist>", "There is no entity \"#x110000\""},
      {"<plist><string>&amp</string></plist>", "An entity has no end"},
      {"<plist><wrong/></plist>", "There is no element \"wrong\" in a property list"},
      {"<plist><!-- no end", "A comment has no end"},
      {"<?xml no end", "A processing instruction has no end"},
      {"<plist><string><![CDATA[x</string></plist>", "A CDATA section has no end"},
      {"<plist><string>x</string></plist>more", "Something follows the end of the property list"},
      {"<!DOCTYPE plist [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>",
       "The document type declares things of its own"},
      {"<!DOCTYPE plist", "The document type has no end"},
      {"<plist><string x <string>", "A tag has no end"},
      {"<plist><array><string>x</string>", "An element is missing"},
  };
  for (const auto& [text, sentence] : cases) {
    std::string error;
    EXPECT_TRUE(readText(text, &error).isAbsent()) << text;
    EXPECT_TRUE(error.starts_with(sentence)) << text << ": " << error;
    EXPECT_NE(error.find("at byte offset"), std::string::npos) << text << ": " << error;
  }
}

TEST(XmlReader, ReadsTheGreatestAndTheLeastOfEachKind) {
  EXPECT_TRUE(readText("<integer>-9223372036854775808</integer>").identical(INT64_MIN));
  EXPECT_TRUE(readText("<integer>9223372036854775807</integer>").identical(INT64_MAX));
  EXPECT_TRUE(readText("<integer>9223372036854775808</integer>").identical(std::uint64_t{1} << 63));
  EXPECT_TRUE(readText("<integer> +0x7f </integer>").identical(127));
  EXPECT_EQ(readText("<string>&#x10FFFF;&#xD7FF;&#xE000;&#65;</string>"),
            PropertyList("\xF4\x8F\xBF\xBF\xED\x9F\xBF\xEE\x80\x80"
                         "A"));
  EXPECT_EQ(readText("<data>AAEC\n Aw==</data>"), PropertyList::data(Bytes{0, 1, 2, 3}));
  EXPECT_EQ(readText("<data>AAE=</data>"), PropertyList::data(Bytes{0, 1}));
  EXPECT_EQ(readText("<data>+/9+</data>"), PropertyList::data(Bytes{0xFB, 0xFF, 0x7E}));
  EXPECT_EQ(readText("<data>azAZ</data>"), PropertyList::data(Bytes{0x6B, 0x30, 0x19}));
  EXPECT_EQ(readText("<date>2001-01-01T00:00:01Z</date>"), PropertyList(Date{1}));
  EXPECT_EQ(readText("<date>2002-02-03T04:05:06Z</date>"), PropertyList(Date{34'401'906}));
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
  for (const char* character : {"\x01", "\x1F", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    EXPECT_EQ(read(*PropertyListSerialization::dataFromPropertyList(character, Format::xml, &error)).string(),
              "\xEF\xBF\xBD");
  }
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
