#include "Common/calls/ValueEncoding.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Common/calls/Invocation.h"
#include "platform/objects/Exceptions.h"

namespace keldane {
namespace {

using NumberKind = PropertyList::NumberKind;

template <char Code>
void roundTrip(RawType<Code> value, const PropertyList& expected, std::uint32_t width) {
  const char type[] = {Code, '\0'};
  std::uint32_t size = 0;
  const PropertyList encoded = encodeType(type, &value, &size);
  EXPECT_TRUE(encoded.identical(expected)) << Code << encoded.description();
  EXPECT_EQ(size, width) << Code;
  EXPECT_EQ(widthOfType(type), width) << Code;
  RawType<Code> decoded{};
  decodeObject(encoded, type, &decoded);
  EXPECT_EQ(decoded, value) << Code;
}

TEST(ValueEncoding, ConvertsEveryCodeBothWays) {
  roundTrip<'c'>(-5, -5, 1);
  roundTrip<'i'>(-70000, -70000, 4);
  roundTrip<'s'>(-300, -300, 2);
  roundTrip<'l'>(std::int64_t{1} << 40, std::int64_t{1} << 40, 8);
  roundTrip<'q'>(INT64_MIN, INT64_MIN, 8);
  roundTrip<'C'>(250, 250, 1);
  roundTrip<'I'>(4000000000U, 4000000000U, 4);
  roundTrip<'S'>(60000, 60000, 2);
  roundTrip<'L'>(std::uint64_t{1} << 63, std::uint64_t{1} << 63, 8);
  roundTrip<'Q'>(UINT64_MAX, UINT64_MAX, 8);
  roundTrip<'f'>(1.5F, 1.5, 4);
  roundTrip<'d'>(2.25, 2.25, 8);
  roundTrip<'B'>(1, true, 1);
  roundTrip<'@'>(PropertyList::array({"a"}), PropertyList::array({"a"}), 8);
}

TEST(ValueEncoding, TextGoesAsAString) {
  const char* text = "häh";
  std::uint32_t size = 0;
  EXPECT_EQ(encodeType("*", &text, &size), PropertyList("häh"));
  EXPECT_EQ(size, sizeof(void*));
  const char* none = nullptr;
  EXPECT_TRUE(encodeType("*", &none).isAbsent());
  const PropertyList object = "text";
  decodeObject(object, "*", &none);
  EXPECT_STREQ(none, "text");
  decodeObject(PropertyList(5), "*", &none);
  EXPECT_EQ(none, nullptr);
}

TEST(ValueEncoding, ABooleanIsItsLowestBitOnly) {
  const unsigned char two = 2;
  EXPECT_TRUE(encodeType("B", &two).identical(PropertyList(false)));
  EXPECT_TRUE(encodeType("c", &two).identical(PropertyList(2)));
  unsigned char raw = 9;
  decodeObject(PropertyList(7), "B", &raw);
  EXPECT_EQ(raw, 1);
  decodeObject(PropertyList(0.0), "B", &raw);
  EXPECT_EQ(raw, 0);
}

TEST(ValueEncoding, NumbersAreConvertedByTheirOwnConversions) {
  float real = 0;
  decodeObject(PropertyList(3), "f", &real);
  EXPECT_EQ(real, 3.0F);
  std::int32_t integer = 0;
  decodeObject(PropertyList(-3.9), "i", &integer);
  EXPECT_EQ(integer, -3);
  signed char small = 0;
  decodeObject(PropertyList(300), "c", &small);
  EXPECT_EQ(small, 44);
  decodeObject(PropertyList::array({}), "i", &integer);
  EXPECT_EQ(integer, 0) << "no number at all";
}

template <char Code>
void readsNothingAsZero() {
  const char type[] = {Code, '\0'};
  RawType<Code> value{};
  std::memset(&value, 0x55, sizeof(value));
  decodeObject({}, type, &value);
  EXPECT_EQ(value, RawType<Code>{}) << Code;
}

TEST(ValueEncoding, NothingReadsAsZeroOfEveryNumericCode) {
  readsNothingAsZero<'c'>();
  readsNothingAsZero<'i'>();
  readsNothingAsZero<'s'>();
  readsNothingAsZero<'l'>();
  readsNothingAsZero<'q'>();
  readsNothingAsZero<'C'>();
  readsNothingAsZero<'I'>();
  readsNothingAsZero<'S'>();
  readsNothingAsZero<'L'>();
  readsNothingAsZero<'Q'>();
  readsNothingAsZero<'f'>();
  readsNothingAsZero<'d'>();
  readsNothingAsZero<'B'>();
}

TEST(ValueEncoding, NothingReadsAsZeroOrNothing) {
  double real = 5;
  decodeObject({}, "d", &real);
  EXPECT_EQ(real, 0.0);
  PropertyList object = "something";
  decodeObject({}, "@", &object);
  EXPECT_TRUE(object.isAbsent());
  std::uint64_t number = 5;
  decodeObject({}, "Q", &number);
  EXPECT_EQ(number, 0U);
  const char* text = "x";
  decodeObject({}, "*", &text);
  EXPECT_EQ(text, nullptr);
}

TEST(ValueEncoding, OnlyTheFirstCharacterCounts) {
  const std::int32_t value = 5;
  EXPECT_EQ(encodeType("i16@0:8", &value), PropertyList(5));
}

TEST(ValueEncoding, AnUnknownCodeIsAnAssertion) {
  std::int64_t buffer = 0;
  for (const char* type : {"v", "#", ":", "{s=i}", "^i", "r*", ""}) {
    try {
      encodeType(type, &buffer);
      FAIL() << type;
    } catch (const AssertionFailure& failure) {
      EXPECT_EQ(failure.description(),
                std::string("Unknown argument type specifier: ") + std::string(type, *type != '\0' ? 1 : 0));
      EXPECT_EQ(failure.file(), "Common/KeldProxy");
      EXPECT_EQ(failure.line(), 489);
    }
    try {
      decodeObject({}, type, &buffer);
      FAIL() << type;
    } catch (const AssertionFailure& failure) {
      EXPECT_EQ(failure.line(), 563);
    }
  }
  EXPECT_EQ(widthOfType("v"), 0U);
}

}  // namespace
}  // namespace keldane
