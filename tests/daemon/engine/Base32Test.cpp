#include "daemon/engine/Base32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace keldane::testing {
namespace {

std::string textOf(std::string_view bytes) {
  return base32({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

/// A key that contains I, L, O and B.
const std::string kSample = "BILOBILOBILOBILOBILOBILOBILOBILOBILOBILOBILOBILOBIOQ";

std::string inGroups(const std::string& text) {
  std::string grouped;
  for (std::size_t i = 0; i < text.size(); i += 4) {
    grouped += (i == 0 ? "" : "-") + text.substr(i, 4);
  }
  return grouped;
}

std::string replaced(std::string text, char what, char with) {
  std::ranges::replace(text, what, with);
  return text;
}

TEST(Base32Test, WritesTheExamplesOfTheStandard) {
  EXPECT_EQ(textOf(""), "");
  EXPECT_EQ(textOf("f"), "MY");
  EXPECT_EQ(textOf("fo"), "MZXQ");
  EXPECT_EQ(textOf("foo"), "MZXW6");
  EXPECT_EQ(textOf("foob"), "MZXW6YQ");
  EXPECT_EQ(textOf("fooba"), "MZXW6YTB");
  EXPECT_EQ(textOf("foobar"), "MZXW6YTBOI");
}

TEST(Base32Test, ReadsAKeyAsPeopleTypeIt) {
  std::array<std::uint8_t, kKeyBytes> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 37);
  }
  const std::string key = base32(bytes);
  ASSERT_EQ(key.size(), kKeyLetters);
  EXPECT_EQ(keyFromTyping(key), key);
  std::string lower = inGroups(key);
  std::ranges::transform(lower, lower.begin(),
                         [](char letter) { return static_cast<char>(std::tolower(letter)); });
  EXPECT_EQ(keyFromTyping("  " + lower + "\r\n"), key);
  EXPECT_EQ(keyFromTyping(inGroups(key + keyCheckLetters(key))), key);
}

TEST(Base32Test, TakesDigitsForTheLettersThatTheyLookLike) {
  EXPECT_EQ(keyFromTyping(replaced(replaced(kSample, 'O', '0'), 'B', '8')), kSample);
  EXPECT_EQ(keyFromTyping(replaced(kSample, 'I', '1')), kSample);
  const std::string checked = kSample.substr(0, 2) + "1" + kSample.substr(3) + keyCheckLetters(kSample);
  EXPECT_EQ(keyFromTyping(checked), kSample) << "the check letters say that it is an L";
}

TEST(Base32Test, RefusesWhatIsNoKey) {
  EXPECT_EQ(keyFromTyping(""), std::nullopt);
  EXPECT_EQ(keyFromTyping(kSample.substr(1)), std::nullopt);
  EXPECT_EQ(keyFromTyping(kSample + "A"), std::nullopt);
  EXPECT_EQ(keyFromTyping(kSample.substr(0, 51) + "?"), std::nullopt);
  EXPECT_EQ(keyFromTyping(kSample.substr(0, 51) + "B"), std::nullopt)
      << "the last letter holds bits beyond the key";
  EXPECT_EQ(keyFromTyping(std::string(56, '1')), std::nullopt);
}

TEST(Base32Test, FindsEveryWrongLetterByTheCheckLetters) {
  for (std::size_t i = 0; i < kKeyLetters; ++i) {
    std::string typed = kSample + keyCheckLetters(kSample);
    typed[i] = typed[i] == 'Q' ? 'A' : 'Q';
    EXPECT_EQ(keyFromTyping(typed), std::nullopt) << i;
  }
}

}  // namespace
}  // namespace keldane::testing
