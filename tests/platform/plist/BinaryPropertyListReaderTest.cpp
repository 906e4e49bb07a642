#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/platform/plist/Documents.h"
#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::binary;
using testing::bytesOf;
using testing::document;
using testing::hex;
using testing::nested;
using testing::read;
using testing::sample;

// When a key is there twice, the dictionary leaves one value out. Another container may still refer to that
// value.
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

TEST(BinaryReader, ACountMayEndWhereTheObjectsEnd) {
  std::string error;
  EXPECT_EQ(read(document({std::string("\x5F\x10\x00", 3)}), &error), PropertyList("")) << error;
}

TEST(BinaryReader, ACountThatReachesBehindTheObjectsIsRefusedWhereItStands) {
  std::string error;
  EXPECT_TRUE(read(document({std::string("\x5F\x12\x00", 3)}), &error).isAbsent());
  EXPECT_EQ(error, "An object reaches beyond the end of the objects at byte offset 10");
}

TEST(BinaryReader, ACountWhoseBytesCannotBeCountedIsRefused) {
  const std::string count("\x13\x80\x00\x00\x00\x00\x00\x00\x00", 9);  // 2^63
  for (const char* kind : {"\x6F", "\xAF", "\xDF"}) {                  // two bytes or references each
    std::string error;
    EXPECT_TRUE(read(document({kind + count}, 0, 2), &error).isAbsent());
    EXPECT_NE(error.find("reaches beyond the end"), std::string::npos) << error;
  }
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
  for (const char* name : {"größe", longName.c_str()}) {  // such keys are not searched for
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

// This must hold for any usual keys and any damage of the message.
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

TEST(BinaryReader, ANulFollowsEveryTextWhateverTheMemoryHeldBefore) {
  PropertyList::Array texts;
  for (std::size_t length = 0; length < 60; ++length) {
    texts.emplace_back(std::string(length, 'x'));
  }
  const Bytes bytes = binary(PropertyList::array(texts));
  for (int round = 0; round < 3; ++round) {  // later rounds get the memory of earlier ones
    const PropertyList value = read(bytes);
    ASSERT_EQ(value.count(), texts.size());
    for (std::size_t length = 0; length < texts.size(); ++length) {
      const std::string_view text = value[length].string();
      EXPECT_EQ(text.size(), length);
      EXPECT_EQ(std::strlen(text.data()), length);
    }
    std::vector<std::unique_ptr<std::string>> dirt;
    for (std::size_t size = 16; size < 20'000; size += size / 2) {
      dirt.push_back(std::make_unique<std::string>(size, 'd'));
    }
  }
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

TEST(BinaryReader, RefusesObjectsThatReachBeyondTheEndOfTheObjects) {
  struct Cut {
    std::string marker;  // with the count
    std::size_t size;    // bytes that follow
  };
  const Cut cuts[] = {{"\x10", 1}, {"\x11", 2},     {"\x12", 4},     {"\x13", 8}, {"\x14", 16}, {"\x22", 4},
                      {"\x23", 8}, {"\x33", 8},     {"\x43", 3},     {"\x53", 3}, {"\x63", 6},  {"\xA3", 3},
                      {"\xD2", 4}, {"\x4F\x10", 1}, {"\x5F\x11", 2}, {"\xAF", 1}};
  for (const Cut& cut : cuts) {
    std::string error;
    EXPECT_TRUE(read(document({cut.marker + std::string(cut.size - 1, '\0')}), &error).isAbsent());
    EXPECT_TRUE(error.starts_with("An object reaches beyond the end of the objects"))
        << hex(bytesOf(cut.marker), 0, 2) << ": " << error;
  }
}

TEST(BinaryReader, RefusesNestingBeyondItsLimitHoweverItIsShared) {
  EXPECT_EQ(read(binary(nested(512))), nested(512));
  // 600 arrays, each around the next. They need longer offsets, so the document is made by hand.
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
  // Each string is the rest of the string before it.
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

}  // namespace
}  // namespace keldane
