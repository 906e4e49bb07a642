#include "platform/plist/binary/BinaryPropertyListReader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <memory_resource>
#include <utility>
#include <vector>

#include "platform/plist/PropertyListBlocks.h"
#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListNode.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/plist/binary/Format.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

using namespace binary_plist;

// Code that walks a value visits a shared object once for each reference to it. In a chain of containers that
// each hold the next one twice, the visits double at every link. So the number of bytes limits the number of
// values. A short list may always have kMostValues values, because equal dictionaries may be written once.
constexpr std::uint64_t kMostValues = 65536;
constexpr std::uint64_t kMostValuesPerByte = 16;
constexpr std::uint64_t kMostValuesOfAll = std::uint64_t{1} << 31;

std::uint64_t eightBytes(const std::uint8_t* bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof(value));
  return std::endian::native == std::endian::little ? __builtin_bswap64(value) : value;
}

// This function is kept out of line, so that the code that always runs stays together.
[[noreturn, gnu::cold, gnu::noinline]] void fail(const char* sentence, std::size_t offset) {
  throw PropertyListError(sentence, offset);
}

class BinaryReader {
 public:
  BinaryReader(BytesView bytes, PropertyList usualKeys) : bytes_(bytes), usualKeys_(std::move(usualKeys)) {
    readTrailer();
  }

  PropertyList read() { return object(topObject_, 1); }

  /// After `read`, the keys of the outermost dictionary when they can be the usual keys of the next message.
  /// Absent when they cannot, or when they are the usual keys already.
  const PropertyList& newUsualKeys() const { return newUsualKeys_; }

 private:
  /// The state of an object. The container that it was first read for keeps the value alive, and no other
  /// thread knows the value before everything is read. `height` counts the levels of containers from this
  /// object downwards. `values` counts the object and the values in it. A shared value counts once for each
  /// reference.
  struct Object {
    enum State : std::uint8_t { unknown, beingRead, whole, usual };  // usual: other threads know it
    std::uintptr_t bits = 0;
    std::uint32_t values = 1;
    std::uint16_t height = 0;
    State state = unknown;
  };

  /// The keys of a dictionary and the offset of the references to them. Two dictionaries with the same
  /// references have the same keys.
  struct KnownKeys {
    PropertyList keys;
    std::size_t offset = 0;
  };

  void readTrailer() {
    if (bytes_.size() < kBinaryPropertyListMagic.size() + kTrailerSize) {
      fail("The binary property list is too short to hold a trailer", bytes_.size());
    }
    const std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = bytes_[trailer + kOffsetWidthField];
    referenceSize_ = bytes_[trailer + kReferenceWidthField];
    const std::uint64_t objects = bigEndian(trailer + kObjectCountField, 8);
    topObject_ = bigEndian(trailer + kTopObjectField, 8);
    offsetTable_ = bigEndian(trailer + kOffsetTableField, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      fail("The trailer gives a width that is not between 1 and 8 bytes", trailer + kOffsetWidthField);
    }
    if (offsetTable_ < kBinaryPropertyListMagic.size() || offsetTable_ > trailer) {
      fail("The trailer puts the offset table outside the property list", trailer + kOffsetTableField);
    }
    if (objects == 0 || objects > (trailer - offsetTable_) / offsetSize_) {
      fail("The trailer counts more objects than the offset table holds", trailer + kObjectCountField);
    }
    if (topObject_ >= objects) {
      fail("The trailer names a top object that does not exist", trailer + kTopObjectField);
    }
    objects_.resize(objects);
    mostValues_ = std::min(std::max(kMostValues, kMostValuesPerByte * bytes_.size()), kMostValuesOfAll);
    expect(0);
  }

  /// Announces the memory that the objects will take, when `known` of them need not be made.
  void expect(std::size_t known) {
    const std::size_t scalars =
        offsetTable_ - taken_ + (objects_.size() - known) * PropertyListBlocks::sizeFor(0);
    const std::size_t containers = 2 * offsetTable_;
    containers_ = offsetTable_ < kShort ? &scalars_ : &apart_;
    scalars_.expect(containers_ == &scalars_ ? scalars + containers : scalars);
    apart_.expect(containers);
  }

  /// An integer of up to 8 bytes. It begins before the trailer, so reading 8 bytes stays within the data.
  std::uint64_t bigEndian(std::size_t offset, std::size_t width) const {
    return eightBytes(bytes_.data() + offset) >> (64 - 8 * width);
  }

  /// Takes `count` pieces of `width` bytes, 8 at most, at `offset` for an object. They must lie before the
  /// offset table. All objects together cannot take more bytes than there are, because overlapping objects
  /// would make a short message large in memory.
  void take(std::size_t offset, std::uint64_t count, std::size_t width = 1) {
    const std::uint64_t left = offset > offsetTable_ ? 0 : offsetTable_ - offset;
    if (offset > offsetTable_ || count > left || count * width > left) {
      fail("An object reaches beyond the end of the objects", offset);
    }
    taken_ += count * width;
    if (taken_ > offsetTable_ - kBinaryPropertyListMagic.size()) {
      fail("Objects overlap", offset);
    }
  }

  PropertyList object(std::uint64_t reference, int depth) {
    Object& known = objects_[reference];
    if (known.state >= Object::whole) {
      if (depth + known.height - 1 > PropertyListSerialization::kMaximumDepth) {
        fail("Containers are nested too deep", offsetOf(reference));
      }
      return known.state == Object::usual ? PropertyListAccess::share(known.bits)
                                          : PropertyListAccess::shareUnpublished(known.bits);
    }
    const std::size_t offset = offsetOf(reference);
    if (known.state == Object::beingRead) {
      fail("A container holds itself", offset);
    }
    known.state = Object::beingRead;
    PropertyList value = parse(known, offset, depth);
    known.bits = PropertyListAccess::bits(value);
    known.state = Object::whole;
    return value;
  }

  std::size_t offsetOf(std::uint64_t reference) const {
    const std::uint64_t offset = bigEndian(offsetTable_ + reference * offsetSize_, offsetSize_);
    if (offset < kBinaryPropertyListMagic.size() || offset >= offsetTable_) {
      fail("An object lies outside the property list", offsetTable_ + reference * offsetSize_);
    }
    return offset;
  }

  PropertyList parse(Object& target, const std::size_t start, int depth) {
    const std::uint8_t marker = bytes_[start];
    const std::uint8_t low = lowOf(marker);
    std::size_t offset = start + 1;
    switch (kindOf(marker)) {
      case kSimple:
        if (low != kFalse && low != kTrue) {
          break;
        }
        return PropertyList::boolean(low == kTrue);
      case kInteger:
        return integer(offset, low);
      case kReal:
        return real(offset, low);
      case kDate:
        if (low != kEightBytes) {
          break;
        }
        take(offset, 8);
        return scalar(PropertyList::Kind::date, std::bit_cast<double>(bigEndian(offset, 8)));
      case kData: {
        const std::size_t length = count(offset, low);
        take(offset, length);
        return data(offset, length);
      }
      case kAscii: {
        const std::size_t length = count(offset, low);
        take(offset, length);
        return isAscii(text(offset, length)) ? string(text(offset, length))
                                             : string(replacedAscii(text(offset, length)));
      }
      case kUtf16: {
        const std::size_t length = count(offset, low);
        take(offset, length, 2);
        return string(utf8FromUtf16(text(offset, 2 * length), true));
      }
      case kUid:
        fail("A UID is no property-list value", start);
      case kArray:
        return readArray(target, start, offset, low, depth);
      case kOrderedSet:
      case kSet:
        fail("A set is no property-list value", start);
      case kDictionary:
        return readDictionary(target, start, offset, low, depth);
      default:
        break;
    }
    fail("An object has an unknown marker", start);
  }

  /// The count of a container, string or data: the lower half of the marker, or the integer that follows it.
  std::size_t count(std::size_t& offset, std::uint8_t low) {
    if (low != kCountFollows) {
      return low;
    }
    take(offset, 1);
    const std::uint8_t marker = bytes_[offset];
    if (kindOf(marker) != kInteger || lowOf(marker) > kEightBytes) {
      fail("A count is no integer", offset);
    }
    const std::size_t width = std::size_t{1} << lowOf(marker);
    take(offset + 1, width);
    const std::uint64_t value = bigEndian(offset + 1, width);
    offset += 1 + width;
    return value;
  }

  std::string_view text(std::size_t offset, std::size_t length) const {
    return {reinterpret_cast<const char*>(bytes_.data()) + offset, length};
  }

  PropertyList string(std::string_view text) {
    PropertyListNode* node = scalars_.allocate(PropertyList::Kind::string, text.size(), text.size() + 1);
    std::memcpy(node->bytes(), text.data(), text.size());
    node->bytes()[text.size()] = '\0';
    return PropertyListAccess::adopt(node);
  }

  PropertyList data(std::size_t offset, std::size_t length) {
    PropertyListNode* node = scalars_.allocate(PropertyList::Kind::data, length, length);
    std::copy_n(bytes_.data() + offset, length, node->bytes());
    return PropertyListAccess::adopt(node);
  }

  /// A date or a real.
  PropertyList scalar(PropertyList::Kind kind, double value) {
    PropertyListNode* node = scalars_.allocate(kind, 0, 0);
    node->numberKind = PropertyList::NumberKind::real;
    node->scalar.real = value;
    return PropertyListAccess::adopt(node);
  }

  static std::string replacedAscii(std::string_view bytes) {
    std::string replaced;
    for (const char byte : bytes) {
      appendUtf8(replaced,
                 static_cast<std::uint8_t>(byte) > 127 ? kReplacementCharacter : static_cast<char32_t>(byte));
    }
    return replaced;
  }

  PropertyList integer(std::size_t offset, std::uint8_t low) {
    if (low > kSixteenBytes) {
      fail("An integer is wider than 16 bytes", offset - 1);
    }
    const std::size_t width = std::size_t{1} << low;
    take(offset, width);
    if (width <= 8) {
      return PropertyList::integer(static_cast<std::int64_t>(bigEndian(offset, width)));
    }
    const std::uint64_t high = bigEndian(offset, 8);
    const std::uint64_t value = bigEndian(offset + 8, 8);
    const bool negative = value >> 63 != 0;
    if (high == 0) {
      return negative ? PropertyList::unsignedInteger(value)
                      : PropertyList::integer(static_cast<std::int64_t>(value));
    }
    if (high == UINT64_MAX && negative) {
      return PropertyList::integer(static_cast<std::int64_t>(value));
    }
    fail("An integer does not fit 64 bits", offset - 1);
  }

  PropertyList real(std::size_t offset, std::uint8_t low) {
    if (low != kFourBytes && low != kEightBytes) {
      fail("A real is neither 4 nor 8 bytes wide", offset - 1);
    }
    take(offset, low == kFourBytes ? 4 : 8);
    return scalar(
        PropertyList::Kind::number,
        low == kFourBytes
            ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(offset, 4))))
            : std::bit_cast<double>(bigEndian(offset, 8)));
  }

  /// Reads a member of the container at `start` and raises the container's height accordingly.
  PropertyList member(Object& container, std::size_t start, std::size_t referenceOffset, int depth) {
    const std::uint64_t reference = bigEndian(referenceOffset, referenceSize_);
    if (reference >= objects_.size()) {
      fail("A container refers to an object that does not exist", start);
    }
    PropertyList value = object(reference, depth + 1);
    const Object& found = objects_[reference];
    container.height =
        std::max<std::uint16_t>(container.height, static_cast<std::uint16_t>(found.height + 1));
    addValues(container, start, found.values);
    return value;
  }

  void addValues(Object& container, std::size_t start, std::uint64_t values) const {
    if (container.values + values > mostValues_) {
      fail("Shared objects make too many values", start);
    }
    container.values += static_cast<std::uint32_t>(values);
  }

  void beginContainer(Object& target, std::size_t start, int depth) const {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      fail("Containers are nested too deep", start);
    }
    target.height = 1;
  }

  /// A container with `handles` absent members.
  PropertyListNode* container(PropertyList::Kind kind, std::size_t length, std::size_t handles) {
    PropertyListNode* node = containers_->allocate(kind, length, handles * sizeof(PropertyList));
    std::uninitialized_value_construct_n(node->handles(), handles);
    return node;
  }

  void readMembers(Object& target, std::size_t start, std::size_t offset, int depth, PropertyList* members,
                   std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
      // This overwrites an absent value, which has nothing to release.
      new (&members[i]) PropertyList(member(target, start, offset + i * referenceSize_, depth));
    }
  }

  PropertyList readArray(Object& target, std::size_t start, std::size_t offset, std::uint8_t low, int depth) {
    beginContainer(target, start, depth);
    const std::size_t length = count(offset, low);
    take(offset, length, referenceSize_);
    PropertyListNode* node = container(PropertyList::Kind::array, length, length);
    PropertyList value = PropertyListAccess::adopt(node);
    readMembers(target, start, offset, depth, node->handles(), length);
    return value;
  }

  PropertyList readDictionary(Object& target, std::size_t start, std::size_t offset, std::uint8_t low,
                              int depth) {
    beginContainer(target, start, depth);
    const std::size_t length = count(offset, low);
    take(offset, length, 2 * referenceSize_);
    const std::size_t values = offset + length * referenceSize_;
    const bool isOutermost = std::exchange(isOutermost_, false);
    const PropertyList* keys = knownKeys(offset, length);
    if (keys == nullptr) {
      const bool isUsual = takeUsualKeys(offset, length);
      KnownKeys& known = knownKeys_[nextKnownKeys_++ % knownKeys_.size()];
      known = {isUsual ? usualKeys_ : readKeys(target, start, offset, length, depth), offset};
      keys = &known.keys;
      if (isUsual) {
        addValues(target, start, length);
        if (isOutermost) {
          expect(length);
        }
      } else if (!PropertyListAccess::keysDiffer(*PropertyListAccess::node(*keys))) {
        return readRepeated(target, start, values, depth, std::exchange(known.keys, {}));
      } else if (isOutermost && canBeUsual(*PropertyListAccess::node(*keys))) {
        newUsualKeys_ = *keys;
      }
    } else {
      addValues(target, start, length);
    }
    PropertyListNode* node = container(PropertyList::Kind::dictionary, length, 1 + length);
    PropertyList value = PropertyListAccess::adopt(node);
    new (node->handles()) PropertyList(*keys);
    readMembers(target, start, values, depth, node->values(), length);
    return value;
  }

  PropertyList readKeys(Object& target, std::size_t start, std::size_t offset, std::size_t length,
                        int depth) {
    PropertyList::Array keys(length);
    readMembers(target, start, offset, depth, keys.data(), length);
    if (!std::all_of(keys.begin(), keys.end(), [](const PropertyList& key) { return key.isString(); })) {
      fail("A dictionary has a key that is no string", start);
    }
    return PropertyListAccess::makeKeys(std::move(keys));
  }

  const PropertyList* knownKeys(std::size_t offset, std::size_t length) const {
    for (const KnownKeys& known : knownKeys_) {
      const PropertyListNode* keys = PropertyListAccess::node(known.keys);
      if (keys != nullptr && keys->count == length &&
          std::memcmp(&bytes_[known.offset], &bytes_[offset], length * referenceSize_) == 0) {
        return &known.keys;
      }
    }
    return nullptr;
  }

  /// Whether the references at `offset` lead to the usual keys, which then need not be made. Keys that were
  /// matched before the first mismatch are not made either.
  bool takeUsualKeys(std::size_t offset, std::size_t length) {
    const PropertyListNode* keys = PropertyListAccess::node(usualKeys_);
    if (keys == nullptr || keys->count != length) {
      return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
      const std::uint64_t reference = bigEndian(offset + i * referenceSize_, referenceSize_);
      if (reference >= objects_.size()) {
        return false;
      }
      Object& known = objects_[reference];
      const PropertyList& key = keys->handles()[i];
      if (known.state == Object::unknown) {
        const PropertyListNode& text = *PropertyListAccess::node(key);
        const std::size_t place = offsetOf(reference);
        if (!isShortText(place, {text.bytes(), text.count})) {
          return false;
        }
        take(place + 1, text.count);
        known.bits = PropertyListAccess::bits(key);
        known.state = Object::usual;
      } else if (known.state != Object::usual || known.bits != PropertyListAccess::bits(key)) {
        return false;
      }
    }
    return true;
  }

  /// Whether the object at `offset` is `text`, which is ASCII and so short that its length is in the marker.
  bool isShortText(std::size_t offset, std::string_view text) const {
    return bytes_[offset] == marker(kAscii, text.size()) && text.size() < offsetTable_ - offset &&
           std::memcmp(&bytes_[offset + 1], text.data(), text.size()) == 0;
  }

  /// Whether there are few keys, and `isShortText` can find all of them.
  static bool canBeUsual(const PropertyListNode& keys) {
    return keys.count <= PropertyListNode::kLinearLookUp &&
           std::all_of(keys.handles(), keys.handles() + keys.count, [](const PropertyList& key) {
             return key.string().size() < kCountFollows && isAscii(key.string());
           });
  }

  /// Reads a dictionary with repeated keys. Only the first entry of each key counts. A value that is left out
  /// may still be referred to from elsewhere.
  PropertyList readRepeated(Object& target, std::size_t start, std::size_t offset, int depth,
                            const PropertyList& keys) {
    const PropertyListNode* names = PropertyListAccess::node(keys);
    PropertyList::Array values(names->count);
    readMembers(target, start, offset, depth, values.data(), values.size());
    PropertyList::Entries entries;
    for (std::size_t i = 0; i < values.size(); ++i) {
      entries.emplace_back(names->handles()[i], values[i]);
    }
    kept_.push_back(keys);
    kept_.insert(kept_.end(), values.begin(), values.end());
    return PropertyList::dictionary(std::move(entries));
  }

  BytesView bytes_;
  std::size_t offsetSize_ = 0, referenceSize_ = 0;
  std::uint64_t topObject_ = 0, offsetTable_ = 0;
  std::uint64_t taken_ = 0;
  std::uint64_t mostValues_ = 0;
  // This is enough for the objects of a message of the usual size. More objects come from the heap.
  std::array<std::byte, 1024> few_;
  std::pmr::monotonic_buffer_resource memory_{few_.data(), few_.size()};
  std::pmr::vector<Object> objects_{&memory_};
  const PropertyList usualKeys_;
  PropertyList newUsualKeys_;
  bool isOutermost_ = true;  // the next dictionary
  std::array<KnownKeys, 4> knownKeys_;
  std::size_t nextKnownKeys_ = 0;
  PropertyList::Array kept_;
  // Containers have blocks of their own, because a value that is taken out of a dictionary usually outlives
  // it. A short message still uses one block.
  static constexpr std::size_t kShort = 1024;
  PropertyListBlocks scalars_, apart_;
  PropertyListBlocks* containers_ = nullptr;
};

}  // namespace

PropertyList readBinaryPropertyList(BytesView bytes, PropertyList::Keys* usualKeys) {
  BinaryReader reader(bytes, usualKeys == nullptr ? PropertyList() : PropertyListAccess::keys(*usualKeys));
  PropertyList value = reader.read();
  if (usualKeys != nullptr && reader.newUsualKeys()) {
    PropertyListAccess::keys(*usualKeys) = reader.newUsualKeys();
  }
  return value;
}

}  // namespace keldane
