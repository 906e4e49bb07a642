#include <gtest/gtest.h>

#include <algorithm>

#include "clients/core/key/KeySheet.h"
#include "clients/core/key/QrCode.h"

namespace keldane {
namespace {

const std::string kSvgKey = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567ABCDEFGHIJKLMNOPQRST";

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++count;
  }
  return count;
}

TEST(KeySheetSvg, IsAPageWithKeyAndCode) {
  const std::string svg = keySheetSvg({kSvgKey, "/a/b", "0123", "laptop", 3, "2026-11-20"});
  EXPECT_TRUE(svg.starts_with("<svg "));
  EXPECT_TRUE(svg.ends_with("</svg>\n"));
  EXPECT_NE(svg.find("width=\"210mm\" height=\"297mm\""), std::string::npos);
  for (const char* part :
       {">ABCD EFGH IJKL MNOP<", ">QRST<", ">XMFC<", "/a/b", "3 (laptop)", "restic snapshots"}) {
    EXPECT_NE(svg.find(part), std::string::npos) << part;
  }
  const QrCode code(kSvgKey);
  std::size_t dark = 0;
  for (std::size_t i = 0; i < code.size() * code.size(); ++i) {
    dark += code.isDark(i % code.size(), i / code.size()) ? 1 : 0;
  }
  EXPECT_EQ(countOf(svg, "h1v1h-1z"), dark);
}

TEST(KeySheetSvg, KeepsWhatWouldBeMarkup) {
  const std::string svg = keySheetSvg({kSvgKey, "/a<b>&\n\x1b", "", "", 0, ""});
  EXPECT_NE(svg.find("/a&lt;b&gt;&amp;"), std::string::npos);
  EXPECT_EQ(svg.find('\x1b'), std::string::npos);
}

TEST(KeySheetSvg, GoesOnInTheNextLineWithoutPartingACharacter) {
  std::string location;
  for (int i = 0; i < 200; ++i) {
    location += "ü";
  }
  const std::string svg = keySheetSvg({"a key of another making & all", location, "", "", 0, ""});
  EXPECT_EQ(countOf(svg, "ü"), 400U) << "as the place and in the third step";
  EXPECT_NE(svg.find("a key of another making &amp; all"), std::string::npos);
}

}  // namespace
}  // namespace keldane
