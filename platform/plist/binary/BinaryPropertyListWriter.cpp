#include "platform/plist/binary/BinaryPropertyListWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory_resource>
#include <optional>
#include <utility>

#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListNode.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/plist/binary/Encoding.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

using namespace binary_plist;

// This function is kept out of line, so that the code that always runs stays together.
[[noreturn, gnu::cold, gnu::noinline]] void fail(const char* sentence) { throw PropertyListError(sentence); }

[[noreturn, gnu::cold, gnu::noinline]] void failForDepth() {
  throw PropertyListError("The containers are nested deeper than " +
                          std::to_string(PropertyListSerialization::kMaximumDepth) + " levels.");
}

/// Writes one value. An object is written when it is first met, and gets the next number. A container comes
/// before its members, and the keys of a dictionary before its values. A container leaves room for its
/// references, which are filled in as its members get their numbers.
class BinaryWriter {
  static constexpr std::size_t kFewObjects = 32;
  static constexpr std::size_t kMostExpected = std::size_t{1} << 20;
  static constexpr std::size_t kMostRoomAhead = std::size_t{4} << 20;

 public:
  /// References take `referenceSize` bytes: 1, 2 or 4. The expected number of objects is a guess. Most values
  /// are one message, or an array of dictionaries with about four unshared objects each.
  BinaryWriter(const PropertyList& value, std::size_t referenceSize)
      : referenceSize_(referenceSize),
        mostObjects_(std::min<std::size_t>(std::size_t{1} << 8 * referenceSize, UINT32_MAX)),
        expected_(std::clamp((value[0].isDictionary() ? 4 : 2) * value.count(), kFewObjects,
                             std::min(mostObjects_, kMostExpected))),
        numbers_(std::bit_ceil(2 * expected_), memory_),
        objects_(expected_, memory_) {}

  /// Absent when there are more objects than the references can name.
  std::optional<Bytes> write(const PropertyList& value) {
    next_ = putBytes(next_, kBinaryPropertyListMagic.data(), kBinaryPropertyListMagic.size());
    write(value, 1);
    if (isFull_) {
      return std::nullopt;
    }
    const std::uint64_t table = size();
    const std::size_t offsetSize = widthFor(table);
    room(objects_.size() * offsetSize + kTrailerSize);
    std::uint8_t* to = next_;
    for (const WrittenObject& object : objects_) {
      to = putBigEndian(to, object.offset(), offsetSize);
    }
    to = putBigEndian(to, 0, kOffsetWidthField);
    to = putByte(putByte(to, offsetSize), referenceSize_);
    for (const std::uint64_t number : {std::uint64_t{objects_.size()}, std::uint64_t{0}, table}) {
      to = putBigEndian(to, number, 8);
    }
    next_ = to;
    if (bytes_.empty()) {
      return Bytes(start_, next_);
    }
    bytes_.resize(size());
    return std::move(bytes_);
  }

 private:
  using Reference = ObjectNumbers::Reference;

  struct Written {
    Reference reference;
    int height;
  };

  Written write(const PropertyList& value, int depth) {
    const PropertyListNode* node = PropertyListAccess::node(value);
    if (node == nullptr) {
      return {writeScalar(value), 0};
    }
    switch (node->kind) {
      case PropertyList::Kind::string:
      case PropertyList::Kind::data:
        return {writeBytes(value, *node), 0};
      case PropertyList::Kind::array:
      case PropertyList::Kind::dictionary:
        return writeContainer(value, *node, depth);
      default:
        return {writeScalar(value), 0};
    }
  }

  Reference writeBytes(const PropertyList& value, const PropertyListNode& node) {
    const Reference next = nextReference();
    const ByteMarks marks = marksOf(node);
    const Reference reference = numbers_.findBytes(node, marks, next, objects_);
    if (reference == next && begin(value)) {
      const bool isString = node.kind == PropertyList::Kind::string;
      if (isString && !marks.isAscii()) {
        writeUtf16({node.bytes(), node.count});
      } else {
        room(node.count);
        next_ = putBytes(putMarker(next_, isString ? kAscii : kData, node.count), node.bytes(), node.count);
      }
    }
    return reference;
  }

  Reference writeScalar(const PropertyList& value) {
    if (value.isAbsent()) {
      fail("A container holds no value where one belongs.");
    }
    const Reference next = nextReference();
    const ObjectIdentity identity(value);
    const Reference reference = numbers_.findIdentity(identity, next, objects_);
    if (reference == next && begin(value)) {
      room(0);
      next_ = putScalar(next_, identity);
    }
    return reference;
  }

  void writeUtf16(std::string_view text) {
    const std::u16string units = utf16FromUtf8(text);
    room(2 * units.size());
    next_ = putMarker(next_, kUtf16, units.size());
    for (const char16_t unit : units) {
      next_ = putBigEndian(next_, unit, 2);
    }
  }

  Written writeContainer(const PropertyList& value, const PropertyListNode& container, int depth) {
    const Reference next = nextReference();
    // A container with only one reference is met once. A shared one that was met before may be deeper this
    // time.
    if (container.isShared()) {
      const Reference reference = numbers_.findIdentity(ObjectIdentity(value), next, objects_);
      if (reference != next) {
        const int height = objects_[reference].height();
        checkDepth(depth + height - 1);
        return {reference, height};
      }
    }
    if (!begin(value)) {
      return {next, 0};
    }
    checkDepth(depth);
    const bool isDictionary = container.kind == PropertyList::Kind::dictionary;
    const std::size_t width = container.count * referenceSize_;
    room(isDictionary ? 2 * width : width);
    next_ = putMarker(next_, isDictionary ? kDictionary : kArray, container.count);
    std::size_t place = size();
    next_ += isDictionary ? 2 * width : width;
    if (isDictionary) {
      writeKeys(*container.keys(), place);
      place += width;
    }
    int height = 0;
    for (std::size_t i = 0; i < container.count && !isFull_; ++i) {
      const Written member = write(container.members()[i], depth + 1);
      putReference(place, member.reference);
      place += referenceSize_;
      height = std::max(height, member.height);
    }
    objects_[next].setHeight(++height);
    return {next, height};
  }

  /// Writes the keys of a dictionary, whose references go to `place`.
  void writeKeys(const PropertyListNode& keys, std::size_t place) {
    for (const KnownKeys& known : knownKeys_) {
      if (known.keys == &keys) {
        std::copy_n(start_ + known.place, keys.count * referenceSize_, start_ + place);
        return;
      }
    }
    if (keys.isShared()) {
      knownKeys_[nextKnownKeys_++ % knownKeys_.size()] = {&keys, place};
    }
    for (std::size_t i = 0; i < keys.count && !isFull_; ++i) {
      const PropertyList& key = keys.handles()[i];
      putReference(place, writeBytes(key, *PropertyListAccess::node(key)));
      place += referenceSize_;
    }
  }

  Reference nextReference() const { return static_cast<Reference>(objects_.size()); }

  /// Gives the next number to an object that is about to be written. False when the references cannot name
  /// it; then nothing may be looked up any more.
  bool begin(const PropertyList& value) {
    if (objects_.size() == mostObjects_) {
      if (mostObjects_ == UINT32_MAX) {
        fail("There are more than 4294967295 objects.");
      }
      isFull_ = true;
      return false;
    }
    objects_.append({&value, size()});
    return true;
  }

  static void checkDepth(int depth) {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      failForDepth();
    }
  }

  std::size_t size() const { return static_cast<std::size_t>(next_ - start_); }

  /// Makes room for `count` bytes and a scalar.
  void room(std::size_t count) {
    if (count + kEncodingSlack > static_cast<std::size_t>(end_ - next_)) {
      grow(count + kEncodingSlack);
    }
  }

  /// Enlarges the buffer. The new size is a guess from the objects written so far and the number of objects
  /// expected, plus a quarter. The guess is limited; the doubling is not.
  [[gnu::noinline]] void grow(std::size_t count) {
    const std::size_t done = size();
    const std::size_t expected =
        std::min(done / std::max<std::size_t>(objects_.size(), 1) * expected_, kMostRoomAhead);
    Bytes bytes(done + std::max({count, done, expected + expected / 4}));
    std::copy_n(start_, done, bytes.data());
    bytes_.swap(bytes);
    start_ = bytes_.data();
    next_ = start_ + done;
    end_ = start_ + bytes_.size();
  }

  void putReference(std::size_t place, Reference reference) {
    for (std::size_t i = referenceSize_; i-- > 0; reference >>= 8) {
      start_[place + i] = static_cast<std::uint8_t>(reference);
    }
  }

  struct KnownKeys {
    const PropertyListNode* keys = nullptr;
    std::size_t place = 0;  ///< where their references were written
  };

  const std::size_t referenceSize_;
  const std::size_t mostObjects_;
  const std::size_t expected_;
  // This is enough for a message of the usual size. More memory comes from the heap.
  std::array<std::byte, 1280> few_;
  std::pmr::monotonic_buffer_resource memory_{few_.data(), few_.size()};
  ObjectNumbers numbers_;
  WrittenObjects objects_;
  bool isFull_ = false;  // there are more objects than references can name
  std::array<KnownKeys, 4> knownKeys_;
  std::size_t nextKnownKeys_ = 0;
  std::array<std::uint8_t, 1024> fewBytes_;
  Bytes bytes_;  // used instead of fewBytes_ when those are too few
  std::uint8_t* start_ = fewBytes_.data();
  std::uint8_t* next_ = start_;
  std::uint8_t* end_ = start_ + fewBytes_.size();
};

}  // namespace

Bytes writeBinaryPropertyList(const PropertyList& value) {
  // When a value has more objects than narrow references can name, writing starts again with wider ones. With
  // the narrowest references this happens at the 257th object.
  for (std::size_t referenceSize = 1;; referenceSize *= 2) {
    if (std::optional<Bytes> bytes = BinaryWriter(value, referenceSize).write(value)) {
      return std::move(*bytes);
    }
  }
}

}  // namespace keldane
