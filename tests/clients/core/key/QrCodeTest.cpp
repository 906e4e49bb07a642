#include "clients/core/key/QrCode.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

const std::string kCodeText = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567ABCDEFGHIJKLMNOPQRST";

// Whether one of the three squares in the corners, by which a camera finds the code, is there.
bool hasFinderAt(const QrCode& code, std::size_t left, std::size_t top) {
  for (std::size_t i = 0; i < 7; ++i) {
    if (!code.isDark(left + i, top) || !code.isDark(left, top + i) || !code.isDark(left + i, top + 6)) {
      return false;
    }
  }
  return !code.isDark(left + 1, top + 1) && code.isDark(left + 3, top + 3);
}

TEST(QrCode, HasASquareInThreeCorners) {
  const QrCode code(kCodeText);
  ASSERT_EQ(code.size(), 29U) << "capitals and digits need less room than bytes";
  EXPECT_TRUE(hasFinderAt(code, 0, 0));
  EXPECT_TRUE(hasFinderAt(code, code.size() - 7, 0));
  EXPECT_TRUE(hasFinderAt(code, 0, code.size() - 7));
  EXPECT_FALSE(hasFinderAt(code, code.size() - 7, code.size() - 7));
  EXPECT_FALSE(code.isDark(code.size(), 0));
}

TEST(QrCode, DrawsEachModule) {
  const QrCode code(kCodeText);
  const std::vector<std::string> lines = code.lines(false);
  ASSERT_EQ(lines.size(), code.size() + 2 * QrCode::kMargin);
  for (std::size_t y = 0; y < lines.size(); ++y) {
    ASSERT_EQ(lines[y].size(), 2 * lines.size());
    for (std::size_t x = 0; x < lines.size(); ++x) {
      EXPECT_EQ(lines[y].substr(2 * x, 2) == "##", code.isDark(x - QrCode::kMargin, y - QrCode::kMargin));
    }
  }
}

TEST(QrCode, DrawsTwoRowsALineWithBlocks) {
  const QrCode code(kCodeText);
  const std::vector<std::string> lines = code.lines(true);
  ASSERT_EQ(lines.size(), (code.size() + 2 * QrCode::kMargin + 1) / 2);
  EXPECT_EQ(lines.front(), std::string(code.size() + 2 * QrCode::kMargin, ' '));
  EXPECT_TRUE(lines[2].starts_with("    █▀▀▀▀▀█ ")) << lines[2];
}

TEST(QrCode, RefusesWhatDoesNotFit) {
  EXPECT_THROW(QrCode(""), std::runtime_error);
  EXPECT_THROW(QrCode(std::string(3000, 'x')), std::runtime_error);
}

}  // namespace
}  // namespace keldane
