// The golden frames of the protocol's reference, as this system reads and writes them.
#include <gtest/gtest.h>

#include <cstring>

#include "Common/calls/Invocation.h"
#include "Common/nodes/FileNode.h"
#include "Common/transport/KeldSocket.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/protocol/ReferenceFiles.h"

namespace keldane::testing {
namespace {

constexpr std::size_t kHeader = 44;

template <class Integer>
Integer integerAt(const Bytes& bytes, std::size_t offset) {
  Integer value = 0;
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

PropertyList payloadOf(const Json& frame) {
  const Bytes bytes = bytesOf(frame);
  std::string error;
  return bytes.size() <= kHeader
             ? PropertyList()
             : PropertyListSerialization::propertyListFromData(BytesView(bytes).subspan(kHeader), &error);
}

template <class Test>
void forEachFrame(const Test& test) {
  for (const char* file : {"requests", "answers", "callbacks", "values"}) {
    const Json frames = referenceFile(std::string("frames/") + file + ".json")["frames"];
    ASSERT_FALSE(frames.empty()) << file;
    for (const Json& frame : frames) {
      SCOPED_TRACE(file + (": " + frame["name"].get<std::string>()));
      test(frame);
    }
  }
}

TEST(GoldenFrames, BeginWithTheMarkerTheTypeAndTheLength) {
  forEachFrame([](const Json& frame) {
    const Bytes bytes = bytesOf(frame);
    ASSERT_GE(bytes.size(), kHeader);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + kFrameMarker.size()), kFrameMarker);
    EXPECT_EQ(integerAt<std::int32_t>(bytes, 36), frame["type"].get<std::int32_t>());
    EXPECT_EQ(integerAt<std::uint32_t>(bytes, 40), bytes.size() - kHeader);
    EXPECT_EQ(frame["length"].get<std::size_t>(), bytes.size() - kHeader);
  });
}

TEST(GoldenFrames, MeanWhatIsWrittenBesideThem) {
  forEachFrame([](const Json& frame) {
    EXPECT_TRUE(payloadOf(frame).identical(valueOf(frame["meaning"]))) << payloadOf(frame).description();
  });
}

TEST(GoldenFrames, AreWrittenWithTheSameMeaning) {
  forEachFrame([](const Json& frame) {
    const PropertyList meaning = valueOf(frame["meaning"]);
    if (!meaning) {
      return;
    }
    std::string error;
    const std::optional<Bytes> written = PropertyListSerialization::dataFromPropertyList(
        meaning, PropertyListSerialization::Format::binary, &error);
    ASSERT_TRUE(written) << error;
    EXPECT_TRUE(PropertyListSerialization::propertyListFromData(*written, &error).identical(meaning));
  });
}

TEST(GoldenFrames, HoldValuesThatSurviveTheirTypeCodes) {
  std::string codes;
  const Json values = referenceFile("frames/values.json");
  for (const Json& frame : values["frames"]) {
    SCOPED_TRACE(frame["name"]);
    const PropertyList request = payloadOf(frame);
    const std::string code = frame["code"];
    EXPECT_EQ(request[4].string(), code);
    EXPECT_TRUE(RawValue::decoded(request[5], code.c_str()).encoded().identical(request[5]));
    if (!codes.ends_with(code)) {
      codes += code;
    }
  }
  EXPECT_EQ(codes, "cislqCISLQfdB@*") << "every type code has values";
}

TEST(GoldenFrames, MakeNodesThatHoldTheSame) {
  int nodes = 0;
  const Json answers = referenceFile("frames/answers.json");
  for (const Json& frame : answers["frames"]) {
    if (!frame["meaning"].is_object() || !frame["meaning"].contains("fileName")) {
      continue;
    }
    const PropertyList told = payloadOf(frame);
    const KeldaneFileNode::Pointer node = KeldaneFileNode::create();
    node->initWithDictionary(told);
    const PropertyList kept = node->dictionary();
    for (std::size_t i = 0; i < kept.count(); ++i) {
      const auto [key, value] = kept.entry(i);
      EXPECT_TRUE(value.identical(told[key.string()])) << key.string();
    }
    ++nodes;
  }
  EXPECT_GE(nodes, 2);
}

}  // namespace
}  // namespace keldane::testing
