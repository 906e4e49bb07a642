#include "cli/Json.h"

#include <gtest/gtest.h>

#include <limits>

namespace keldane {
namespace {

std::string jsonOf(const PropertyList& value) { return jsonLine(jsonValue(value)); }

TEST(Json, HasEveryKindOfValue) {
  const std::uint8_t bytes[] = {0, 0xAB, 0xFF};
  EXPECT_EQ(jsonOf({}), "null");
  EXPECT_EQ(jsonOf("ä\n"), "\"ä\\n\"");
  EXPECT_EQ(jsonOf(true), "true");
  EXPECT_EQ(jsonOf(-1), "-1");
  EXPECT_EQ(jsonOf(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(jsonOf(0.5), "0.5");
  EXPECT_EQ(jsonOf(std::numeric_limits<double>::quiet_NaN()), "null");
  EXPECT_EQ(jsonOf(Date::fromUnixTime(1.5)), "\"1970-01-01T00:00:01Z\"");
  EXPECT_EQ(jsonOf(Date{std::numeric_limits<double>::infinity()}), "null");
  EXPECT_EQ(jsonOf(PropertyList::data(bytes)), "\"00abff\"");
  EXPECT_EQ(jsonOf(PropertyList::array({1, "b"})), "[1,\"b\"]");
  EXPECT_EQ(jsonOf(PropertyList::dictionary({{"b", 1}, {"a", 2}})), "{\"b\":1,\"a\":2}");
}

TEST(Json, MendsTextThatIsNoUtf8) { EXPECT_EQ(jsonOf("a\xff"), "\"a\uFFFD\""); }

TEST(Json, WhatLiesTooDeepIsDescribed) {
  PropertyList value = "x";
  for (int i = 0; i < 10000; ++i) {
    value = PropertyList::array({value});
  }
  const std::string text = jsonOf(value);
  EXPECT_TRUE(text.starts_with("[[[[[[[[[[[[[[[[\"(")) << text.substr(0, 40);
}

}  // namespace
}  // namespace keldane
