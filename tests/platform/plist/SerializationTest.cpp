#include <gtest/gtest.h>

#include <random>

#include "tests/platform/plist/Documents.h"
#include "tests/support/Samples.h"

namespace keldane {
namespace {

using testing::binary;
using testing::Format;
using testing::read;

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

// What lies behind the bytes may be anything, also what would complete them.
TEST(Serialization, NothingBehindTheBytesIsRead) {
  const PropertyList value = testing::sample();
  std::vector<Bytes> documents = {
      testing::bytesOf("// text\n{ a = (\"q\\101\", 'b', <0a 0b>, c); d = \"\"; }  ")};
  for (const Format format : {Format::binary, Format::xml}) {
    documents.push_back(PropertyListSerialization::dataFromPropertyList(value, format, nullptr).value());
    documents.back().push_back(' ');
  }
  for (const Bytes& whole : documents) {
    for (std::size_t size = 0; size <= whole.size(); ++size) {
      const Bytes alone(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      std::string error, errorAlone;
      const PropertyList part =
          PropertyListSerialization::propertyListFromData(BytesView(whole).first(size), &error, nullptr);
      EXPECT_EQ(part, read(alone, &errorAlone)) << size;
      EXPECT_EQ(error, errorAlone) << size;
    }
  }
}

TEST(Serialization, NothingAtAllIsAnError) {
  std::string error;
  EXPECT_TRUE(read({}, &error).isAbsent());
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace keldane
