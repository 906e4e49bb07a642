#include "platform/plist/PropertyListSerialization.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>

#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::nested;

using Format = PropertyListSerialization::Format;

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

PropertyList read(const Bytes& bytes, std::string* error = nullptr, Format* format = nullptr) {
  return PropertyListSerialization::propertyListFromData(bytes, error, format);
}
PropertyList readText(std::string_view text, std::string* error = nullptr) {
  return read(bytesOf(text), error);
}

Bytes binary(const PropertyList& value) {
  std::string error;
  const auto bytes = PropertyListSerialization::dataFromPropertyList(value, Format::binary, &error);
  EXPECT_TRUE(bytes) << error;
  return bytes.value_or(Bytes());
}

std::string hex(const Bytes& bytes, std::size_t from, std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = from; i < from + count && i < bytes.size(); ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

/// Objects, then the offset table and trailer that the format asks for.
Bytes document(const std::vector<std::string>& objects, std::uint64_t top = 0,
               std::uint8_t referenceSize = 1) {
  Bytes bytes = bytesOf("bplist00");
  std::vector<std::uint8_t> offsets;
  for (const std::string& object : objects) {
    offsets.push_back(static_cast<std::uint8_t>(bytes.size()));
    bytes.insert(bytes.end(), object.begin(), object.end());
  }
  const std::uint64_t table = bytes.size();
  bytes.insert(bytes.end(), offsets.begin(), offsets.end());
  bytes.insert(bytes.end(), 6, 0);
  bytes.push_back(1);
  bytes.push_back(referenceSize);
  for (const std::uint64_t number : {std::uint64_t{objects.size()}, top, table}) {
    for (int shift = 56; shift >= 0; shift -= 8) {
      bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
  }
  return bytes;
}

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

// Whatever two of a value's dictionaries have in common, the bytes are those of dictionaries by themselves.
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

// What a dictionary leaves out because its key is there twice may belong to another one too.
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

TEST(BinaryReader, KeepsWhatOneDictionaryLeavesOutForTheNext) {
  const std::string text = "\x58only one";
  const Bytes bytes = document({std::string("\xA2\x01\x02", 3), std::string("\xD2\x03\x04\x05\x06", 5),
                                std::string("\xD2\x04\x03\x06\x05", 5), "\x51k", "\x51k", "\x51v", text});
  std::string error;
  const PropertyList value = read(bytes, &error);
  EXPECT_EQ(error, "");
  EXPECT_EQ(value, PropertyList::array({PropertyList::dictionary({{"k", "v"}}),
                                        PropertyList::dictionary({{"k", "only one"}})}));
}

TEST(BinaryReader, TheFirstValueOfAKeyStaysHoweverManyKeysThereAre) {
  constexpr char kCount = 20;
  std::string references;
  std::vector<std::string> objects = {""};
  for (char i = 0; i < kCount; ++i) {
    objects.push_back({'\x51', static_cast<char>('a' + i % (kCount - 1))});  // the last is the first again
    references += static_cast<char>(1 + i);
  }
  for (char i = 0; i < kCount; ++i) {
    objects.push_back({'\x10', i});
    references += static_cast<char>(1 + kCount + i);
  }
  objects[0] = std::string("\xDF\x10") + kCount + references;
  const PropertyList value = read(document(objects));
  EXPECT_EQ(value.count(), 19U);
  EXPECT_EQ(value["a"], PropertyList(0));
  EXPECT_EQ(value["s"], PropertyList(18));
}

TEST(BinaryReader, DictionariesWithTheUsualKeysShareThem) {
  PropertyList::Keys usual;
  const auto keyOf = [&](const PropertyList& written) {
    const PropertyList value =
        PropertyListSerialization::propertyListFromData(binary(written), nullptr, nullptr, &usual);
    EXPECT_TRUE(value.identical(written)) << value.description();
    return value.entry(1).first;  // the second key, behind one that may be the same
  };
  const auto dictionary = [](const char* first, const char* second, int value) {
    return PropertyList::dictionary({{first, value}, {second, "text"}});
  };
  const PropertyList first = keyOf(dictionary("name", "kind", 1));
  EXPECT_EQ(keyOf(dictionary("name", "kind", 2)).string().data(), first.string().data());
  EXPECT_FALSE(keyOf(PropertyList::array({dictionary("name", "kind", 3)})));
  EXPECT_EQ(keyOf(dictionary("name", "kind", 4)).string().data(), first.string().data());

  const PropertyList other = keyOf(dictionary("name", "size", 5));
  EXPECT_NE(other.string().data(), first.string().data()) << "keys are shared together or not at all";
  EXPECT_EQ(keyOf(dictionary("name", "size", 6)).string().data(), other.string().data());

  const std::string longName(15, 'n');
  for (const char* name : {"größe", longName.c_str()}) {  // which are not looked for
    const PropertyList unusual = keyOf(dictionary(name, "kind", 7));
    EXPECT_NE(keyOf(dictionary(name, "kind", 7)).string().data(), unusual.string().data());
  }
  EXPECT_EQ(keyOf(dictionary("name", "size", 8)).string().data(), other.string().data());
}

TEST(BinaryReader, TheUsualKeysAreThoseOfTheOutermostDictionary) {
  PropertyList::Keys usual;
  const PropertyList nest = PropertyList::dictionary(
      {{"outer", PropertyList::dictionary({{"inner", 1}})}, {"last", PropertyList::dictionary({})}});
  const auto keyOf = [&](const PropertyList& value) {
    return PropertyListSerialization::propertyListFromData(binary(value), nullptr, nullptr, &usual)
        .entry(0)
        .first.string()
        .data();
  };
  const char* outer = keyOf(nest);
  EXPECT_EQ(keyOf(nest), outer);
  EXPECT_EQ(keyOf(nest), outer);
}

// Whatever the usual keys are, and however the message is damaged.
TEST(BinaryReader, TheUsualKeysChangeNothingOfWhatIsRead) {
  const std::vector<Bytes> documents = {
      document({"\xD2\x01\x02\x03\x04", "\x51\x61", "\x51\x62", "\x10\x01", "\x10\x02"}),
      document({"\xD2\x02\x01\x03\x04", "\x51\x61", "\x51\x62", "\x10\x01", "\x10\x02"}),  // their order
      document({"\xD2\x01\x01\x03\x04", "\x51\x61", "\x51\x62", "\x10\x01", "\x10\x02"}),  // one twice
      document({"\xD2\x01\x02\x01\x02", "\x51\x61", "\x51\x62"}),                          // as values too
      document({"\xD2\x01\x02\x03\x03", "\x51\x61", "\x51\x63", "\x10\x01"}),              // one is another
      document({"\xD2\x01\x02\x03\x03", "\x51\x61", "\x61" + std::string("\0b", 2), "\x10\x01"}),
      document({std::string("\xD2\x01\x00\x01\x01", 5), "\x51\x61"}),  // holds itself
      document({"\xD2\x01\x09\x01\x01", "\x51\x61"}),                  // no such object
      document({"\xA2\x01\x02", "\x51\x61", "\xD2\x01\x03\x04\x04", "\x51\x62", "\x10\x01"}),
      document({"\xA2\x01\x02", "\xD2\x03\x04\x03\x04", "\xD2\x05\x06\x05\x06", "\x51\x61", "\x51\x62",
                "\x51\x61", "\x51\x62"}),
      document({"\xD1\x01\x02", "\x51\x61", "\xD2\x01\x03\x01\x03", "\x51\x62"}),
  };
  const auto readWith = [](const Bytes& bytes, const Bytes& before) {
    PropertyList::Keys usual;
    PropertyListSerialization::propertyListFromData(before, nullptr, nullptr, &usual);
    std::string error;
    const PropertyList value =
        PropertyListSerialization::propertyListFromData(bytes, &error, nullptr, &usual);
    return value.description() + error;
  };
  for (const Bytes& before : documents) {
    for (const Bytes& original : documents) {
      Bytes bytes = original;
      for (std::size_t i = 8; i < bytes.size(); ++i) {
        for (const unsigned change : {0x00U, 0x01U, 0x02U, 0x03U, 0x10U, 0x80U}) {
          bytes[i] = static_cast<std::uint8_t>(original[i] ^ change);
          std::string error;
          const PropertyList value = read(bytes, &error);
          ASSERT_EQ(readWith(bytes, before), value.description() + error) << hex(bytes, 0, bytes.size());
        }
        bytes[i] = original[i];
      }
    }
  }
}

TEST(BinaryReader, WhatIsTakenOutOfAValueOutlivesIt) {
  PropertyList::Array many;
  for (int i = 0; i < 2000; ++i) {
    many.push_back(PropertyList::dictionary({{"name", "name " + std::to_string(i)}, {"real", i / 4.0}}));
  }
  PropertyList value = read(binary(PropertyList::array(many)));
  const PropertyList name = value[1234]["name"];
  const PropertyList dictionary = value[77];
  value = PropertyList();
  EXPECT_EQ(name.string(), "name 1234");
  EXPECT_EQ(dictionary, many[77]);
}

TEST(BinaryReader, ReadsEveryWidthOfInteger) {
  const auto bytes = [](std::initializer_list<int> list) { return std::string(list.begin(), list.end()); };
  EXPECT_EQ(read(document({bytes({0x10, 0xFF})})).longLongValue(), 255);
  EXPECT_EQ(read(document({bytes({0x11, 0xFF, 0xFF})})).longLongValue(), 65535);
  EXPECT_EQ(read(document({bytes({0x12, 0xFF, 0xFF, 0xFF, 0xFF})})).longLongValue(), 4294967295);
  EXPECT_EQ(read(document({bytes({0x13}) + std::string(8, '\xFF')})).longLongValue(), -1);
  EXPECT_EQ(
      read(document({bytes({0x14}) + std::string(8, '\0') + std::string(8, '\xFF')})).unsignedLongLongValue(),
      UINT64_MAX);
  EXPECT_EQ(read(document({bytes({0x14}) + std::string(16, '\xFF')})).longLongValue(), -1);
  EXPECT_EQ(read(document({bytes({0x14}) + std::string(15, '\0') + '\x07'})).longLongValue(), 7);
  std::string error;
  EXPECT_FALSE(read(document({bytes({0x14, 1}) + std::string(15, '\0')}), &error));
  EXPECT_NE(error.find("64 bits"), std::string::npos);
  EXPECT_FALSE(read(document({bytes({0x15}) + std::string(32, '\0')}), &error));
}

TEST(BinaryReader, ReadsBothWidthsOfReal) {
  EXPECT_EQ(read(document({std::string("\x22\x3F\xC0\x00\x00", 5)})).doubleValue(), 1.5);
  EXPECT_EQ(read(document({std::string("\x23\x3F\xF8\x00\x00\x00\x00\x00\x00", 9)})).doubleValue(), 1.5);
}

TEST(BinaryReader, MendsTextThatIsNone) {
  EXPECT_EQ(read(document({"\x52"
                           "a\xFF"}))
                .string(),
            "a\xEF\xBF\xBD");
  EXPECT_EQ(read(document({std::string("\x61\xD8\x00", 3)})).string(), "\xEF\xBF\xBD") << "a lone surrogate";
}

struct Malformed {
  const char* what;
  Bytes bytes;
};

TEST(BinaryReader, RefusesWhatIsMalformedWithASentenceAndAnOffset) {
  Bytes badTop = document({"\x51"
                           "a"},
                          1);
  Bytes badTable =
      document({"\x51"
                "a"});
  badTable[badTable.size() - 1] = 200;
  Bytes zeroWidth =
      document({"\x51"
                "a"});
  zeroWidth[zeroWidth.size() - 26] = 0;
  Bytes wideReference =
      document({"\x51"
                "a"});
  wideReference[wideReference.size() - 25] = 9;
  Bytes manyObjects =
      document({"\x51"
                "a"});
  manyObjects[manyObjects.size() - 24] = 0x7F;
  const Malformed cases[] = {
      {"too short", bytesOf("bplist00")},
      {"another version", bytesOf("bplist15" + std::string(40, '\0'))},
      {"top object", badTop},
      {"offset table", badTable},
      {"offset width", zeroWidth},
      {"reference width", wideReference},
      {"object count", manyObjects},
      {"a cycle", document({"\xA1" + std::string(1, '\0')})},
      {"a longer cycle", document({"\xA1\x01", "\xA1" + std::string(1, '\0')})},
      {"a UID", document({"\x80\x01"})},
      {"a set", document({"\xC0"})},
      {"a null object", document({std::string(1, '\0')})},
      {"an unknown marker", document({"\x70"})},
      {"a string beyond the end", document({"\x5E"
                                            "a"})},
      {"a huge count", document({"\xAF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})},
      {"a huge UTF-16 count", document({"\x6F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})},
      {"a count that is no integer", document({"\xAF\x51"})},
      {"a reference to nothing", document({"\xA1\x09"})},
      {"a key that is no string", document({"\xD1\x01\x01", "\x10\x01"})},
  };
  for (const Malformed& malformed : cases) {
    std::string error;
    EXPECT_TRUE(read(malformed.bytes, &error).isAbsent()) << malformed.what;
    EXPECT_NE(error.find("at byte offset"), std::string::npos) << malformed.what << ": " << error;
  }
}

TEST(BinaryReader, RefusesNestingBeyondItsLimitHoweverItIsShared) {
  EXPECT_EQ(read(binary(nested(512))), nested(512));
  // 600 arrays, each around the next: longer offsets, so by hand.
  Bytes bytes = bytesOf("bplist00");
  const std::size_t count = 600;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t next = i + 1 < count ? i + 1 : 0;
    bytes.push_back(i + 1 < count ? 0xA1 : 0xA0);
    if (i + 1 < count) {
      bytes.push_back(static_cast<std::uint8_t>(next >> 8));
      bytes.push_back(static_cast<std::uint8_t>(next));
    }
  }
  const std::size_t table = bytes.size();
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t offset = 8 + 3 * i;
    bytes.push_back(static_cast<std::uint8_t>(offset >> 8));
    bytes.push_back(static_cast<std::uint8_t>(offset));
  }
  bytes.insert(bytes.end(), 6, 0);
  bytes.insert(bytes.end(), {2, 2});
  for (const std::size_t number : {count, std::size_t{0}, table}) {
    for (int shift = 56; shift >= 0; shift -= 8) {
      bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
  }
  std::string error;
  EXPECT_FALSE(read(bytes, &error));
  EXPECT_NE(error.find("too deep"), std::string::npos) << error;
}

TEST(BinaryReader, RefusesObjectsThatOverlap) {
  // Every string is the rest of the one before.
  std::string error;
  EXPECT_FALSE(read(document({"\xA2\x01\x02", "\x5A" + std::string(1, '\x59'), "\x58" + std::string(8, 'a')}),
                    &error));
  EXPECT_NE(error.find("overlap"), std::string::npos) << error;
}

TEST(BinaryReader, RefusesASharedChainThatDoublesAtEveryLink) {
  const auto chain = [](int links) {
    std::vector<std::string> objects;
    for (int i = 1; i <= links; ++i) {
      objects.push_back("\xA2" + std::string(2, static_cast<char>(i)));
    }
    objects.push_back("\x09");
    return document(objects);
  };
  EXPECT_TRUE(read(chain(10)).isArray()) << "sharing as such is fine";
  std::string error;
  EXPECT_FALSE(read(chain(40), &error));
  EXPECT_NE(error.find("too many values"), std::string::npos) << error;
}

PropertyList sample() {
  const std::uint8_t data[] = {0, 1, 2, 250};
  return PropertyList::dictionary(
      {{"name", "Ünïcode 😀"},
       {"count", 12},
       {"size", std::uint64_t{1} << 40},
       {"negative", -5},
       {"flag", true},
       {"real", 2.25},
       {"date", Date{123456789}},
       {"data", PropertyList::data(data)},
       {"list", PropertyList::array({"a", PropertyList::dictionary({{"x", "y"}}), 3})}});
}

TEST(BinaryReader, SurvivesEveryTruncation) {
  const Bytes whole = binary(sample());
  for (std::size_t length = 6; length < whole.size(); ++length) {  // less is a word of the old format
    std::string error;
    read(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)), &error);
    EXPECT_FALSE(error.empty()) << length;
  }
}

TEST(BinaryReader, SurvivesEveryFlippedByte) {
  const Bytes whole = binary(sample());
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
      Bytes broken = whole;
      broken[at] = static_cast<std::uint8_t>(broken[at] ^ flip);
      read(broken).description();
    }
  }
}

PropertyList randomValue(std::mt19937& random, int depth) {
  const auto pick = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
  switch (pick(depth > 0 ? 9 : 7)) {
    case 0:
      return static_cast<std::int64_t>(std::uint64_t{random()} << 32 | random()) >> pick(64);
    case 1:
      return UINT64_MAX - random();
    case 2:
      return static_cast<double>(random()) / 7;
    case 3:
      return pick(2) == 1;
    case 4:
      return Date{static_cast<double>(random() % 4000000000U) - 2e9};
    case 5: {
      Bytes bytes(random() % 40);
      for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
      }
      return PropertyList::data(bytes);
    }
    case 6: {
      static constexpr const char* kWords[] = {"",     "a",  "node",   "état",
                                               "日本", "😀x", "<&>\"'", "tab\tline\nend"};
      return std::string(kWords[pick(8)]) + std::to_string(pick(50));
    }
    case 7: {
      PropertyList::Array elements;
      for (int i = pick(6); i > 0; --i) {
        elements.push_back(randomValue(random, depth - 1));
      }
      return PropertyList::array(elements);
    }
    default: {
      PropertyList::Entries entries;
      for (int i = pick(25); i > 0; --i) {
        entries.emplace_back("k" + std::to_string(pick(40)), randomValue(random, depth - 1));
      }
      return PropertyList::dictionary(entries);
    }
  }
}

class RoundTrip : public ::testing::TestWithParam<Format> {};

TEST_P(RoundTrip, GivesBackWhatWasWritten) {
  std::mt19937 random(20261121);
  for (int i = 0; i < 400; ++i) {
    const PropertyList value = randomValue(random, 4);
    std::string error;
    const auto bytes = PropertyListSerialization::dataFromPropertyList(value, GetParam(), &error);
    ASSERT_TRUE(bytes) << error;
    Format format{};
    const PropertyList back = read(*bytes, &error, &format);
    EXPECT_TRUE(back.identical(value)) << error << "\n" << value.description() << "\n" << back.description();
    EXPECT_EQ(format, GetParam());
    EXPECT_EQ(*PropertyListSerialization::dataFromPropertyList(back, GetParam(), &error), *bytes);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::Values(Format::binary, Format::xml));

TEST(XmlReader, ReadsEveryElement) {
  const PropertyList value = readText(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<!-- a comment --><plist version="1.0"><dict>
  <key>s</key><string>a &lt;b&gt; &amp; &quot;c&quot; &apos;d&apos; &#65;&#x1F600;<![CDATA[<raw & text>]]><!-- in text --></string>
  <key>i</key><integer>-12</integer><key>h</key><integer>0xFF</integer><key>u</key><integer>18446744073709551615</integer>
  <key>r</key><real>2.5e1</real><key>n</key><real>nan</real><key>inf</key><real>-infinity</real>
  <key>t</key><true/><key>f</key><false></false>
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
  for (const char* text : {
           "<plist>",
           "<plist/>",
           "<plist><dict><string>x</string></dict></plist>",
           "<plist><dict><key>k</key></dict></plist>",
           "<plist><string>x</plist>",
           "<plist><integer>1x</integer></plist>",
           "<plist><integer>99999999999999999999</integer></plist>",
           "<plist><real>x</real></plist>",
           "<plist><date>yesterday</date></plist>",
           "<plist><data>*</data></plist>",
           "<plist><data>A</data></plist>",
           "<plist><string>&unknown;</string></plist>",
           "<plist><string>&#0;</string></plist>",
           "<plist><string>&#xD800;</string></plist>",
           "<plist><string>&amp</string></plist>",
           "<plist><wrong/></plist>",
           "<plist><!-- no end",
           "<?xml no end",
           "<plist><string><![CDATA[x</string></plist>",
           "<plist><string>x</string></plist>more",
           "<!DOCTYPE plist [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>",
           "<plist><array><string>x</string>",
       }) {
    std::string error;
    EXPECT_TRUE(readText(text, &error).isAbsent()) << text;
    EXPECT_NE(error.find("at byte offset"), std::string::npos) << text << ": " << error;
  }
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
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(nested(513), Format::xml, &error));
  EXPECT_FALSE(PropertyListSerialization::dataFromPropertyList(Date{1e300}, Format::xml, &error));
}

TEST(TextReader, ReadsTheOldFormat) {
  const PropertyList value = readText(R"(// a comment
{ name = a.txt; "with blank" = "say \"hi\"\n\U00e9\101"; list = (1, two, (x),); data = <dead BEEF>; empty = {}; none = (); /* done */ })");
  EXPECT_EQ(value["name"].string(), "a.txt");
  EXPECT_EQ(value["with blank"].string(), "say \"hi\"\néA");
  EXPECT_EQ(value["list"].count(), 3U);
  EXPECT_EQ(value["data"].description(), "<deadbeef>");
  EXPECT_TRUE(value["empty"].isDictionary());
  EXPECT_TRUE(value["none"].isArray());
  EXPECT_EQ(readText("word").string(), "word");
  EXPECT_EQ(readText("\"\\Ud83d\\Ude00\"").string(), "😀");
}

TEST(TextReader, ReadsWhatABackslashStandsFor) {
  EXPECT_EQ(readText(R"("\r\a\b\f\v\n\t\"\\")").string(), "\r\a\b\f\v\n\t\"\\");
  EXPECT_EQ(readText(R"("\101\7")").string(), "A\a");
  EXPECT_TRUE(readText(R"("\Ud83d\u0041")").string().ends_with('A')) << "half a pair takes nothing along";
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

TEST(TextReader, ReadsAStringsTable) {
  const PropertyList value =
      readText("/* Menu */\n\"Back up This File\" = \"Sichern\";\nalone;\n'single' = 'x';\n");
  EXPECT_EQ(value["Back up This File"].string(), "Sichern");
  EXPECT_EQ(value["alone"].string(), "alone");
  EXPECT_EQ(value["single"].string(), "x");
}

TEST(TextReader, RefusesWhatIsMalformedWithASentenceAndAnOffset) {
  for (const char* text : {"{", "{ a = ", "{ a = b", "{ a b }", "( a b )", "( a", "<abc>", "<xy>", "\"no end",
                           "/* no end", "  ", "a = b c", "{ a = b; } x", "=", "\"\\"}) {
    std::string error;
    EXPECT_TRUE(readText(text, &error).isAbsent()) << text;
    EXPECT_NE(error.find("at byte offset"), std::string::npos) << text << ": " << error;
  }
  EXPECT_TRUE(readText(std::string(513, '(') + std::string(513, ')')).isAbsent());
  EXPECT_TRUE(readText(std::string(512, '(') + std::string(512, ')')).isArray());
}

TEST(Serialization, NothingAtAllIsAnError) {
  std::string error;
  EXPECT_TRUE(read({}, &error).isAbsent());
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace keldane
