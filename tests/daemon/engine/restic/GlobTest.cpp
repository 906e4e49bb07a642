#include "daemon/engine/restic/Glob.h"

#include <gtest/gtest.h>

namespace keldane::testing {
namespace {

TEST(GlobTest, EscapesWhatMeansSomething) {
  EXPECT_EQ(escapedPattern("/a/*?[b]\\c"), "/a/\\*\\?\\[b]\\\\c");
  EXPECT_TRUE(matchesName(escapedPattern("*?[\\]^-"), "*?[\\]^-"));
  EXPECT_TRUE(matchesName(escapedPattern("caf\xEF\xBF\xBD"), "caf\xE9")) << "as which that byte was told";
  EXPECT_TRUE(matchesName(escapedPattern("caf\xEF\xBF\xBD"), "caf\xEF\xBF\xBD"));
}

TEST(GlobTest, MatchesNames) {
  EXPECT_TRUE(matchesName("*.txt", "a.txt"));
  EXPECT_TRUE(matchesName("*", ""));
  EXPECT_TRUE(matchesName("*a*b*", "xxaxxbxx"));
  EXPECT_FALSE(matchesName("*a*b", "xxaxxbx"));
  EXPECT_TRUE(matchesName("*ab", "aab"));
  EXPECT_FALSE(matchesName("a", "ab"));
  EXPECT_FALSE(matchesName("ab", "a"));
  EXPECT_TRUE(matchesName("?", "ü"));
  EXPECT_FALSE(matchesName("?", ""));
  EXPECT_TRUE(matchesName("[a-cx]", "b"));
  EXPECT_TRUE(matchesName("[ä-ü]", "ö"));
  EXPECT_TRUE(matchesName("[^a]", "b"));
  EXPECT_FALSE(matchesName("[^a]", "a"));
  EXPECT_TRUE(matchesName("[\\]]", "]"));
  EXPECT_TRUE(matchesName("\\*", "*"));
  EXPECT_FALSE(matchesName("\\*", "a"));
  EXPECT_TRUE(matchesName(".*", ".hidden"));
}

TEST(GlobTest, TakesABrokenPatternForOneThatMatchesNothing) {
  for (const char* pattern : {"[", "[a", "[a-", "\\", "[]", "[\\"}) {
    EXPECT_FALSE(matchesName(pattern, "a")) << pattern;
    EXPECT_FALSE(matchesName(pattern, pattern)) << pattern;
  }
}

TEST(GlobTest, IsQuickWithManyStars) {
  const std::string name(3000, 'a');
  EXPECT_FALSE(matchesName("*a*a*a*a*a*a*a*a*a*b", name));
}

TEST(GlobTest, MatchesPathsFolderByFolder) {
  EXPECT_TRUE(matchesPath("/a/*/c", "/a/b/c"));
  EXPECT_FALSE(matchesPath("/a/*", "/a/b/c"));
  EXPECT_FALSE(matchesPath("/a", "/a/b"));
  EXPECT_TRUE(matchesPath("/a/**/c", "/a/c"));
  EXPECT_TRUE(matchesPath("/a/**/c", "/a/x/y/c"));
  EXPECT_FALSE(matchesPath("/a/**/c", "/a/x/y/d"));
  EXPECT_TRUE(matchesPath("/**", "/a/b"));
  EXPECT_FALSE(matchesPath("a", "/a"));
}

TEST(GlobTest, ShowsBytesThatAreNoText) {
  EXPECT_EQ(shownText("aü€😀"), "aü€😀");
  EXPECT_EQ(shownText("\xFF"
                      "a\xC3"),
            "\uFFFDa\uFFFD");
  EXPECT_EQ(shownText("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD") << "half of a pair is no character";
  EXPECT_EQ(shownText("\xC0\x80"), "\uFFFD\uFFFD");
}

}  // namespace
}  // namespace keldane::testing
