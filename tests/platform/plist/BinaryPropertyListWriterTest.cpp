#include <gtest/gtest.h>

#include <thread>

#include "tests/platform/plist/Documents.h"
#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::binary;
using testing::Format;
using testing::hex;
using testing::nested;
using testing::read;

TEST(BinaryWriter, WritesTheKnownBytesOfSmallValues) {
  EXPECT_EQ(hex(binary(true), 0, 9),
            "62706c6973743030"
            "09");
  EXPECT_EQ(hex(binary(false), 8, 1), "08");
  EXPECT_EQ(hex(binary(0), 8, 2), "1000");
  EXPECT_EQ(hex(binary(255), 8, 2), "10ff");
  EXPECT_EQ(hex(binary(256), 8, 3), "110100");
  EXPECT_EQ(hex(binary(65536), 8, 5), "1200010000");
  EXPECT_EQ(hex(binary(std::int64_t{1} << 32), 8, 9), "130000000100000000");
  EXPECT_EQ(hex(binary(-1), 8, 9), "13ffffffffffffffff") << "negative ones in 8 bytes";
  EXPECT_EQ(hex(binary(UINT64_MAX), 8, 17), "140000000000000000ffffffffffffffff")
      << "above the signed range in 16";
  EXPECT_EQ(hex(binary(1.5), 8, 9), "233ff8000000000000");
  EXPECT_EQ(hex(binary("ab"), 8, 3), "526162");
  EXPECT_EQ(hex(binary("é"), 8, 3), "6100e9");
  EXPECT_EQ(hex(binary("😀"), 8, 5), "62d83dde00") << "a surrogate pair";
  EXPECT_EQ(hex(binary("a234567890123456"), 8, 3), "5f1010");
  EXPECT_EQ(hex(binary(Date{0}), 8, 9), "330000000000000000");
  EXPECT_EQ(hex(binary(PropertyList::array({})), 8, 1), "a0");
  EXPECT_EQ(hex(binary(PropertyList::dictionary({{"k", 1}})), 8, 7),
            "d10102"
            "516b"
            "1001");
}

TEST(BinaryWriter, WritesATrailer) {
  const Bytes bytes = binary("a");
  EXPECT_EQ(hex(bytes, 10, 33),
            "08"
            "000000000000"
            "01"
            "01"
            "0000000000000001"
            "0000000000000000"
            "000000000000000a");
}

TEST(BinaryWriter, WritesEqualScalarsOnce) {
  const Bytes bytes = binary(PropertyList::array({"same", "same", 7, 7U, true, 1, 1.0, "other"}));
  const PropertyList value = read(bytes);
  // array, "same", 7, true, 1, 1.0, "other"
  EXPECT_EQ(bytes[bytes.size() - 17], 7);
  EXPECT_EQ(value[4].numberKind(), PropertyList::NumberKind::boolean);
  EXPECT_EQ(value[5].numberKind(), PropertyList::NumberKind::signedInteger);
  EXPECT_EQ(value[6].numberKind(), PropertyList::NumberKind::real);
}

TEST(BinaryWriter, TellsZeroFromNegativeZero) {
  const PropertyList value = read(binary(PropertyList::array({0.0, -0.0})));
  EXPECT_FALSE(std::signbit(value[0].doubleValue()));
  EXPECT_TRUE(std::signbit(value[1].doubleValue()));
}

TEST(BinaryWriter, WritesASharedContainerOnce) {
  PropertyList value = "leaf";
  for (int i = 0; i < 200; ++i) {
    value = PropertyList::array({value, value});
  }
  EXPECT_LT(binary(value).size(), 2000U);
  for (int i = 0; i < 190; ++i) {
    value = value[0];
  }
  EXPECT_EQ(read(binary(value)), value);
}

TEST(BinaryWriter, RefusesAbsentValuesAndTooDeepNesting) {
  std::string error;
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList({}, Format::binary, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(PropertyList::array({PropertyList()}),
                                                               Format::binary, &error));
  EXPECT_TRUE(PropertyListSerialization::dataFromPropertyList(nested(512), Format::binary, &error));
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(nested(513), Format::binary, &error));
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(1, Format::openStep, &error));
}

TEST(BinaryWriter, CountsTheLevelsOfASharedContainerWhereItIsDeepest) {
  constexpr int kMaximum = PropertyListSerialization::kMaximumDepth;
  constexpr int kShared = 100;
  const PropertyList shared = nested(kShared);
  const auto below = [&](int levels) {
    PropertyList value = shared;
    for (int i = 0; i < levels; ++i) {
      value = PropertyList::array({value});
    }
    return PropertyList::array({shared, value});  // it is written where it is reached first
  };
  std::string error;
  EXPECT_TRUE(
      PropertyListSerialization::dataFromPropertyList(below(kMaximum - kShared - 1), Format::binary, &error))
      << error;
  EXPECT_FALSE(
      PropertyListSerialization::dataFromPropertyList(below(kMaximum - kShared), Format::binary, &error));
  EXPECT_NE(error.find("deeper"), std::string::npos);
}

// Dictionaries that share their keys must give the same bytes as dictionaries with keys of their own.
TEST(BinaryWriter, WritesSharedKeysAsItWritesOthers) {
  const PropertyList::Keys keys = {"name", "size"};
  PropertyList::Array sharing;
  PropertyList::Array apart;
  for (int i = 0; i < 300; ++i) {
    const std::string name = "file " + std::to_string(i / 2);
    sharing.push_back(PropertyList::dictionary(keys, {name, i % 7}));
    apart.push_back(PropertyList::dictionary({{"name", name}, {"size", i % 7}}));
  }
  EXPECT_EQ(binary(PropertyList::array(sharing)), binary(PropertyList::array(apart)));
}

TEST(BinaryWriter, KnowsDictionariesOfMoreSortsThanItRemembers) {
  PropertyList::Array sorts;
  for (int i = 0; i < 40; ++i) {
    const std::string key = "key " + std::to_string(i % 10);
    sorts.push_back(PropertyList::dictionary({{key, i}, {"other", key}}));
  }
  const PropertyList value = PropertyList::array(sorts);
  const PropertyList copy = read(binary(value));
  EXPECT_EQ(copy, value);
  EXPECT_EQ(binary(copy), binary(value));
}

TEST(BinaryWriter, TakesTheNarrowestReferencesThatNameEachObject) {
  const auto check = [](std::size_t objects, std::size_t width) {
    PropertyList::Array numbers;
    for (std::size_t i = 0; i + 1 < objects; ++i) {
      numbers.emplace_back(i % 2 == 0 ? PropertyList(static_cast<long>(i)) : PropertyList(std::to_string(i)));
    }
    const PropertyList value = PropertyList::array(std::move(numbers));
    const Bytes bytes = binary(value);
    EXPECT_EQ(bytes[bytes.size() - 25], width) << objects << " objects";
    EXPECT_EQ(read(bytes), value) << objects << " objects";
  };
  check(2, 1);
  check(256, 1);
  check(257, 2);
  check(65536, 2);
  check(65537, 4);
}

TEST(BinaryWriter, WritesOneValueOnManyThreads) {
  PropertyList::Array texts;
  for (int i = 0; i < 300; ++i) {
    texts.emplace_back("text " + std::to_string(i) + (i % 2 == 0 ? " über" : ""));
  }
  const PropertyList value = PropertyList::array(std::move(texts));
  std::vector<Bytes> written(4);
  std::vector<std::thread> threads;
  for (Bytes& bytes : written) {
    threads.emplace_back([&] { bytes = binary(value); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const Bytes& bytes : written) {
    EXPECT_EQ(bytes, written[0]);
  }
  EXPECT_EQ(read(written[0]), value);
}

}  // namespace
}  // namespace keldane
