#include "Common/calls/Invocation.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(RawValue, KeepsItsObjectAlive) {
  const RawValue text = RawValue::decoded(PropertyList(std::string(100, 'x')), "*");
  EXPECT_STREQ(text.as<'*'>(), std::string(100, 'x').c_str());
  EXPECT_EQ(RawValue::of<'@'>("object").as<'@'>(), PropertyList("object"));
}

TEST(RawValue, OfAnotherCodeIsConverted) {
  EXPECT_EQ(RawValue::of<'i'>(300).as<'c'>(), 44);
  EXPECT_EQ(RawValue::of<'@'>(PropertyList(7)).as<'I'>(), 7U);
  EXPECT_EQ(RawValue::of<'I'>(7).as<'@'>(), PropertyList(7));
  EXPECT_TRUE(RawValue().as<'@'>().isAbsent());
  EXPECT_EQ(RawValue().as<'I'>(), 0U);
}

TEST(RawValue, NothingIsNothingOfAnyCode) {
  EXPECT_EQ(RawValue().code(), 'v');
  EXPECT_EQ(RawValue().as<'d'>(), 0.0);
  EXPECT_EQ(RawValue().as<'*'>(), nullptr);
  EXPECT_EQ(RawValue::of<'@'>("not text in this sense").as<'*'>(), nullptr);
}

TEST(RawValue, EncodesWithItsOwnCode) {
  EXPECT_TRUE(RawValue::of<'c'>(1).encoded().identical(1)) << "no boolean";
  EXPECT_TRUE(RawValue::of<'B'>(1).encoded().identical(true));
  EXPECT_TRUE(RawValue::of<'Q'>(UINT64_MAX).encoded().identical(UINT64_MAX));
}

/// Records the call that would be sent.
struct Caller {
  RawValue call(std::string_view name, Arguments given) {
    selector = name;
    arguments = std::move(given);
    return result;
  }
  std::string selector;
  Arguments arguments;
  RawValue result;
};

TEST(Codes, ACallCarriesTheRowsCodes) {
  Caller caller;
  caller.result = RawValue::of<'I'>(7);
  EXPECT_EQ((Codes<'@', 'c', 'I'>::call<'I'>(caller, "a:b:c:", "path", true, 300)), 7U);
  EXPECT_EQ(caller.selector, "a:b:c:");
  ASSERT_EQ(caller.arguments.size(), 3U);
  EXPECT_EQ(caller.arguments[0].code(), '@');
  EXPECT_EQ(caller.arguments[1].code(), 'c');
  EXPECT_EQ(caller.arguments[1].as<'c'>(), 1);
  EXPECT_EQ(caller.arguments[2].code(), 'I');
}

TEST(Codes, AcceptAsManyArgumentsAsTheRowHas) {
  EXPECT_TRUE((Codes<'@', 'I'>::accepts<const char*, int>));
  EXPECT_FALSE((Codes<'@', 'I'>::accepts<const char*>));
  EXPECT_FALSE((Codes<>::accepts<int>));
  EXPECT_FALSE((Codes<'I'>::accepts<const char*>));
}

TEST(Codes, PerformingConvertsWhatThePeerSentAndFillsUpWhatItDidNot) {
  Invocation invocation{{"add:to:", 'i', "ii"}, {RawValue::of<'@'>("40")}, {}};
  const auto add = [](std::int32_t a, std::int32_t b) { return a + b + 2; };
  Codes<'i', 'i'>::perform<'i'>(invocation, add);
  EXPECT_EQ(invocation.result.as<'i'>(), 42);
  EXPECT_EQ(invocation.arguments.size(), 2U);

  invocation.arguments.assign(5, RawValue::of<'d'>(1.9));
  Codes<'i', 'i'>::perform<'i'>(invocation, add);
  EXPECT_EQ(invocation.result.as<'i'>(), 4) << "more than it takes is no harm";
}

}  // namespace
}  // namespace keldane
