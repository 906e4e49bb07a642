#include "platform/plist/PropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::nested;

// A value whose text form has 2^levels leaves.
PropertyList doubling(int levels) {
  PropertyList value = "leaf";
  for (int i = 0; i < levels; ++i) {
    value = PropertyList::array({value, value});
  }
  return value;
}

TEST(PropertyList, AbsentAnswersEveryQuestionWithNothing) {
  const PropertyList absent;
  EXPECT_EQ(absent.kind(), PropertyList::Kind::absent);
  EXPECT_FALSE(absent);
  EXPECT_EQ(absent.string(), "");
  EXPECT_TRUE(absent.data().empty());
  EXPECT_EQ(absent.intValue(), 0);
  EXPECT_EQ(absent.doubleValue(), 0);
  EXPECT_FALSE(absent.boolValue());
  EXPECT_EQ(absent.count(), 0U);
  EXPECT_TRUE(absent["key"].isAbsent());
  EXPECT_TRUE(absent[0].isAbsent());
  EXPECT_TRUE(absent.entry(0).first.isAbsent());
  EXPECT_EQ(absent.description(), "(null)");
  EXPECT_EQ(absent, PropertyList());
}

TEST(PropertyList, IsAsWideAsAPointer) { EXPECT_EQ(sizeof(PropertyList), sizeof(void*)); }

TEST(PropertyList, ANumberRemembersWhatItWasMadeFrom) {
  using NumberKind = PropertyList::NumberKind;
  EXPECT_EQ(PropertyList(true).numberKind(), NumberKind::boolean);
  EXPECT_EQ(PropertyList(1).numberKind(), NumberKind::signedInteger);
  EXPECT_EQ(PropertyList(1U).numberKind(), NumberKind::unsignedInteger);
  EXPECT_EQ(PropertyList(1.0).numberKind(), NumberKind::real);
  EXPECT_EQ(PropertyList(INT64_MIN).numberKind(), NumberKind::signedInteger);
  EXPECT_EQ(PropertyList(UINT64_MAX).numberKind(), NumberKind::unsignedInteger);
}

TEST(PropertyList, KeepsIntegersOfEverySize) {
  for (const std::int64_t value :
       {INT64_MIN, INT64_MIN + 1, -(std::int64_t{1} << 60) - 1, -(std::int64_t{1} << 60), std::int64_t{-1},
        std::int64_t{0}, std::int64_t{1}, (std::int64_t{1} << 60) - 1, std::int64_t{1} << 60, INT64_MAX}) {
    EXPECT_EQ(PropertyList(value).longLongValue(), value);
  }
  for (const std::uint64_t value : {std::uint64_t{0}, (std::uint64_t{1} << 60) - 1, std::uint64_t{1} << 60,
                                    std::uint64_t{1} << 63, UINT64_MAX}) {
    EXPECT_EQ(PropertyList(value).unsignedLongLongValue(), value);
  }
}

TEST(PropertyList, AnIntegerThatDoesNotFitIsReducedModuloTheWidth) {
  EXPECT_EQ(PropertyList(300).charValue(), 44);
  EXPECT_EQ(PropertyList(-1).unsignedCharValue(), 255);
  EXPECT_EQ(PropertyList(65536 + 7).shortValue(), 7);
  EXPECT_EQ(PropertyList(-2).unsignedShortValue(), 65534);
  EXPECT_EQ(PropertyList(std::int64_t{1} << 32 | 5).intValue(), 5);
  EXPECT_EQ(PropertyList(-1).unsignedIntValue(), 4294967295U);
  EXPECT_EQ(PropertyList(-1).unsignedLongLongValue(), UINT64_MAX);
  EXPECT_EQ(PropertyList(UINT64_MAX).longLongValue(), -1);
  EXPECT_EQ(PropertyList(7).longValue(), 7);
  EXPECT_EQ(PropertyList(7).unsignedLongValue(), 7U);
}

TEST(PropertyList, ARealIsTruncatedAndSaturates) {
  EXPECT_EQ(PropertyList(3.9).intValue(), 3);
  EXPECT_EQ(PropertyList(-3.9).intValue(), -3);
  EXPECT_EQ(PropertyList(1e30).intValue(), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(PropertyList(-1e30).intValue(), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(PropertyList(1e30).longLongValue(), INT64_MAX);
  EXPECT_EQ(PropertyList(-1e30).unsignedIntValue(), 0U);
  EXPECT_EQ(PropertyList(1e30).unsignedLongLongValue(), UINT64_MAX);
  EXPECT_EQ(PropertyList(std::nan("")).intValue(), 0);
  EXPECT_EQ(PropertyList(1e300).floatValue(), std::numeric_limits<float>::infinity());
  EXPECT_EQ(PropertyList(-1e300).floatValue(), -std::numeric_limits<float>::infinity());
  EXPECT_TRUE(PropertyList(0.5).boolValue());
}

TEST(PropertyList, AStringIsReadAsADecimalNumber) {
  EXPECT_EQ(PropertyList("42").intValue(), 42);
  EXPECT_EQ(PropertyList("  -7 apples").intValue(), -7);
  EXPECT_EQ(PropertyList("99999999999").intValue(), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(PropertyList("-99999999999999999999").longLongValue(), INT64_MIN);
  EXPECT_EQ(PropertyList("none").intValue(), 0);
  EXPECT_DOUBLE_EQ(PropertyList(" 2.5e3x").doubleValue(), 2500);
  EXPECT_EQ(PropertyList("1e999").doubleValue(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(PropertyList("1e-999").doubleValue(), 0);
  EXPECT_TRUE(PropertyList("YES").boolValue());
  EXPECT_TRUE(PropertyList("007").boolValue());
  EXPECT_FALSE(PropertyList("no").boolValue());
  EXPECT_EQ(PropertyList("42").unsignedIntValue(), 0U) << "strings have no such conversion";
}

TEST(PropertyList, ADictionaryKeepsItsOrderAndTheFirstOfEqualKeys) {
  const PropertyList value = PropertyList::dictionary({{"b", 1}, {"a", 2}, {"b", 3}, {"c", PropertyList()}});
  ASSERT_EQ(value.count(), 2U);
  EXPECT_EQ(value.entry(0).first, PropertyList("b"));
  EXPECT_EQ(value["b"].intValue(), 1);
  EXPECT_EQ(value["a"].intValue(), 2);
  EXPECT_TRUE(value["c"].isAbsent());
  EXPECT_TRUE(value.entry(2).first.isAbsent());
}

TEST(PropertyList, ALargeDictionaryFindsEveryKey) {
  PropertyList::Entries entries;
  for (int i = 0; i < 10000; ++i) {
    entries.emplace_back("key" + std::to_string(i % 5000), i);
  }
  const PropertyList value = PropertyList::dictionary(entries);
  ASSERT_EQ(value.count(), 5000U);
  for (int i = 0; i < 5000; ++i) {
    EXPECT_EQ(value["key" + std::to_string(i)].intValue(), i);
  }
  EXPECT_TRUE(value["key5000"].isAbsent());
}

TEST(PropertyList, ALookUpFindsKeysInAnyOrder) {
  for (const int count : {3, 100}) {  // the second count uses binary search
    PropertyList::Entries entries;
    for (int i = 0; i < count; ++i) {
      entries.emplace_back("key" + std::to_string(i), i);
    }
    PropertyList::LookUp values(PropertyList::dictionary(std::move(entries)));
    for (const int i : {0, 1, 2, 1, 0, 2, 2, count - 1, 0}) {
      EXPECT_EQ(values["key" + std::to_string(i)].intValue(), i);
      EXPECT_TRUE(values["key"].isAbsent());
    }
  }
  EXPECT_TRUE(PropertyList::LookUp(PropertyList())["key"].isAbsent());
  EXPECT_TRUE(PropertyList::LookUp("key")["key"].isAbsent());
  EXPECT_TRUE(PropertyList::LookUp(PropertyList::dictionary({}))["key"].isAbsent());
}

TEST(PropertyList, AnEmptyKeyIsFoundByAViewOfNothing) {
  const PropertyList dictionary = PropertyList::dictionary({{"", 1}, {"a", 2}});
  EXPECT_EQ(dictionary[std::string_view()].intValue(), 1);
}

TEST(PropertyList, DictionariesMayShareTheirKeys) {
  const PropertyList::Keys keys = {"name", "size", "date"};
  const PropertyList first = PropertyList::dictionary(keys, {"a", 1, true});
  const PropertyList second = PropertyList::dictionary(keys, {"b", 2, false});
  EXPECT_EQ(first["size"], PropertyList(1));
  EXPECT_EQ(second["name"], PropertyList("b"));
  EXPECT_EQ(second.entry(2), PropertyList::Entry("date", false));
  EXPECT_NE(first, second);
  EXPECT_EQ(first, PropertyList::dictionary({{"date", true}, {"size", 1}, {"name", "a"}}));
}

TEST(PropertyList, KeysThatNobodyHasComeAcrossYetAreNone) {
  EXPECT_TRUE(PropertyList::dictionary(PropertyList::Keys(), {1}).identical(PropertyList::dictionary({})));
}

TEST(PropertyList, OfSharedKeysThoseWithoutAValueAreLeftOut) {
  const PropertyList::Keys keys = {"name", "size", "date"};
  EXPECT_EQ(PropertyList::dictionary(keys, {"a", PropertyList(), true}),
            PropertyList::dictionary({{"name", "a"}, {"date", true}}));
  EXPECT_EQ(PropertyList::dictionary(keys, {"a"}), PropertyList::dictionary({{"name", "a"}}));
}

TEST(PropertyList, NumbersAreEqualByValueAndIdenticalBySort) {
  EXPECT_EQ(PropertyList(1), PropertyList(true));
  EXPECT_EQ(PropertyList(1), PropertyList(1.0));
  EXPECT_EQ(PropertyList(1), PropertyList(1U));
  EXPECT_NE(PropertyList(-1), PropertyList(UINT64_MAX));
  EXPECT_TRUE(PropertyList(1).identical(PropertyList(1U)));
  EXPECT_FALSE(PropertyList(1).identical(PropertyList(true)));
  EXPECT_FALSE(PropertyList(1).identical(PropertyList(1.0)));
  EXPECT_NE(PropertyList("1"), PropertyList(1));
  EXPECT_NE(PropertyList(INT64_MAX), PropertyList(INT64_MAX - 1)) << "though a real has no room for both";
  EXPECT_NE(PropertyList(UINT64_MAX), PropertyList(UINT64_MAX - 1));
}

TEST(PropertyList, DictionariesAreEqualInAnyOrder) {
  EXPECT_EQ(PropertyList::dictionary({{"a", 1}, {"b", 2}}), PropertyList::dictionary({{"b", 2}, {"a", 1}}));
  EXPECT_NE(PropertyList::dictionary({{"a", 1}, {"b", 2}}), PropertyList::dictionary({{"a", 1}, {"c", 2}}));
  EXPECT_NE(PropertyList::array({1, 2}), PropertyList::array({2, 1}));
}

TEST(PropertyList, DeepNestingsAreComparedAndFreedWithoutTheStack) {
  const PropertyList a = nested(200000);
  const PropertyList b = nested(200000);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, nested(199999));
}

TEST(PropertyList, ValuesThatShareTheirPartsCompareInReasonableTime) {
  EXPECT_EQ(doubling(60), doubling(60));
  EXPECT_NE(doubling(60), doubling(59));
}

TEST(PropertyList, ADescriptionHasAnEnd) {
  EXPECT_LT(doubling(60).description().size(), std::size_t{1} << 21);
  EXPECT_LT(nested(100000).description().size(), std::size_t{1} << 21);
}

TEST(PropertyList, DescribesInThePlatformsManner) {
  const PropertyList value = PropertyList::dictionary({{"name", "a.txt"},
                                                       {"with blank", PropertyList::array({1, true, 2.5})},
                                                       {"empty", ""},
                                                       {"none", PropertyList::array({})}});
  EXPECT_EQ(value.description(),
            "{\n    name = a.txt;\n    \"with blank\" = (\n        1,\n        1,\n        2.5\n    );\n"
            "    empty = \"\";\n    none = (\n    );\n}");
  EXPECT_EQ(PropertyList("plain text").description(), "plain text");
  EXPECT_EQ(PropertyList::array({"say \"hi\"\\"}).description(), "(\n    \"say \\\"hi\\\"\\\\\"\n)");
  EXPECT_EQ(PropertyList::array({"two\nlines"}).description(), "(\n    \"two\\nlines\"\n)");
  const std::uint8_t bytes[] = {0xDE, 0xAD, 0xBE, 0xEF, 0x01};
  EXPECT_EQ(PropertyList::data(bytes).description(), "<deadbeef 01>");
  EXPECT_EQ(PropertyList(Date{0}).description(), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(PropertyList(UINT64_MAX).description(), "18446744073709551615");
}

TEST(PropertyList, QuotesTextInAContainerUnlessEachCharacterIsPlain) {
  const std::string plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_$/:.-";
  EXPECT_EQ(PropertyList::array({plain}).description(), "(\n    " + plain + "\n)");
  for (char c = 1; c < 127; ++c) {
    const bool isQuoted =
        PropertyList::array({std::string(2, c)}).description().find("    \"") != std::string::npos;
    EXPECT_EQ(isQuoted, plain.find(c) == std::string::npos) << c;
  }
}

TEST(PropertyList, DatesBeyondTheCalendarStillPrint) {
  EXPECT_FALSE(PropertyList(Date{1e300}).description().empty());
  EXPECT_FALSE(PropertyList(Date{std::nan("")}).description().empty());
}

TEST(PropertyList, ContainersThatAreSharedAreComparedToo) {
  const auto twice = [](const PropertyList& shared) { return PropertyList::array({shared, shared}); };
  const PropertyList one = PropertyList::array({1}), two = PropertyList::array({2});
  EXPECT_EQ(twice(one), twice(PropertyList::array({1})));
  EXPECT_NE(twice(one), twice(two));
  EXPECT_NE(PropertyList::array({one, one}), PropertyList::array({one, two}));
}

// Each container holds two. One of the two values holds the same one twice on the even levels, the other on
// the odd levels, so of each pair that is compared only one container is shared.
TEST(PropertyList, ContainersThatOneSideSharesAreNotComparedAgainAndAgain) {
  const auto ladder = [](int sharedLevels, const char* end) {
    PropertyList::Array rung = {end, end};
    for (int level = 0; level < 64; ++level) {
      const auto next = [&] { return PropertyList::array(rung); };
      rung = level % 2 == sharedLevels ? PropertyList::Array(2, next()) : PropertyList::Array{next(), next()};
    }
    return PropertyList::array(rung);
  };
  EXPECT_EQ(ladder(0, "x"), ladder(1, "x"));
  EXPECT_NE(ladder(0, "x"), ladder(1, "y"));
}

TEST(PropertyList, MayBeSharedByThreads) {
  const PropertyList value = PropertyList::dictionary({{"a", PropertyList::array({"x", 1, 2.5})}});
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([value] {
      for (int i = 0; i < 2000; ++i) {
        const PropertyList copy = value;
        EXPECT_EQ(copy["a"][0].string(), "x");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace keldane
