#include "platform/plist/BinaryPropertyListReader.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/plist/PropertyListError.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/plist/Unicode.h"

namespace keldane {

namespace {

constexpr std::size_t kTrailerSize = 32;

// Whoever walks a value meets a shared object as often as it is referred to, and a chain of containers that
// each hold the next one twice doubles at every link. What a value may come to is bounded by its bytes; a
// short one may share as an encoder that writes each equal dictionary once does.
constexpr std::uint64_t kMostValues = 65536;
constexpr std::uint64_t kMostValuesPerByte = 16;

class Reader {
 public:
  explicit Reader(BytesView bytes) : bytes_(bytes) { readTrailer(); }

  PropertyList read() { return object(topObject_, 1).value; }

 private:
  /// What is known of an object that was met before. `height` counts the containers from it downwards,
  /// `values` the values in it and itself, shared ones as often as they are referred to.
  struct Object {
    PropertyList value;
    std::uint64_t values = 1;
    std::uint16_t height = 0;
    bool reading = false;
    bool read = false;
  };

  void readTrailer() {
    if (bytes_.size() < kBinaryPropertyListMagic.size() + kTrailerSize) {
      throw PropertyListError("The binary property list is too short to hold a trailer", bytes_.size());
    }
    const std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = bytes_[trailer + 6];
    referenceSize_ = bytes_[trailer + 7];
    const std::uint64_t objects = bigEndian(trailer + 8, 8);
    topObject_ = bigEndian(trailer + 16, 8);
    offsetTable_ = bigEndian(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      throw PropertyListError("The trailer gives a width that is not between 1 and 8 bytes", trailer + 6);
    }
    if (offsetTable_ < kBinaryPropertyListMagic.size() || offsetTable_ > trailer) {
      throw PropertyListError("The trailer puts the offset table outside the property list", trailer + 24);
    }
    if (objects == 0 || objects > (trailer - offsetTable_) / offsetSize_) {
      throw PropertyListError("The trailer counts more objects than the offset table holds", trailer + 8);
    }
    if (topObject_ >= objects) {
      throw PropertyListError("The trailer names a top object that does not exist", trailer + 16);
    }
    objects_.resize(objects);
  }

  std::uint64_t bigEndian(std::size_t offset, std::size_t width) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
      value = value << 8 | bytes_[offset + i];
    }
    return value;
  }

  /// Takes `count` pieces of `width` bytes at `offset` for an object. They must lie before the offset table,
  /// and all objects together cannot take more than there is: overlapping ones would make a short message
  /// large in memory.
  void take(std::size_t offset, std::uint64_t count, std::size_t width = 1) {
    if (offset > offsetTable_ || count > (offsetTable_ - offset) / width) {
      throw PropertyListError("An object reaches beyond the end of the objects", offset);
    }
    taken_ += count * width;
    if (taken_ > offsetTable_ - kBinaryPropertyListMagic.size()) {
      throw PropertyListError("Objects overlap", offset);
    }
  }

  const Object& object(std::uint64_t reference, int depth) {
    Object& known = objects_[reference];
    if (known.read) {
      if (depth + known.height - 1 > PropertyListSerialization::kMaximumDepth) {
        throw PropertyListError("Containers are nested too deep", offsetOf(reference));
      }
      return known;
    }
    const std::size_t offset = offsetOf(reference);
    if (known.reading) {
      throw PropertyListError("A container holds itself", offset);
    }
    known.reading = true;
    parse(known, offset, depth);
    known.reading = false;
    known.read = true;
    return known;
  }

  std::size_t offsetOf(std::uint64_t reference) const {
    const std::uint64_t offset = bigEndian(offsetTable_ + reference * offsetSize_, offsetSize_);
    if (offset < kBinaryPropertyListMagic.size() || offset >= offsetTable_) {
      throw PropertyListError("An object lies outside the property list",
                              offsetTable_ + reference * offsetSize_);
    }
    return offset;
  }

  void parse(Object& target, const std::size_t start, int depth) {
    const std::uint8_t marker = bytes_[start];
    const std::uint8_t low = marker & 0x0F;
    std::size_t offset = start + 1;
    switch (marker >> 4) {
      case 0x0:
        if (low != 8 && low != 9) {
          break;
        }
        target.value = PropertyList::boolean(low == 9);
        return;
      case 0x1:
        target.value = integer(offset, low);
        return;
      case 0x2:
        target.value = real(offset, low);
        return;
      case 0x3:
        if (low != 3) {
          break;
        }
        take(offset, 8);
        target.value = Date{std::bit_cast<double>(bigEndian(offset, 8))};
        return;
      case 0x4: {
        const std::size_t length = count(offset, low);
        take(offset, length);
        target.value = PropertyList::data(bytes_.subspan(offset, length));
        return;
      }
      case 0x5: {
        const std::size_t length = count(offset, low);
        take(offset, length);
        target.value = ascii(text(offset, length));
        return;
      }
      case 0x6: {
        const std::size_t length = count(offset, low);
        take(offset, length, 2);
        target.value = utf8FromUtf16(text(offset, 2 * length), true);
        return;
      }
      case 0x8:
        throw PropertyListError("A UID is no property-list value", start);
      case 0xA:
        readArray(target, start, offset, low, depth);
        return;
      case 0xB:
      case 0xC:
        throw PropertyListError("A set is no property-list value", start);
      case 0xD:
        readDictionary(target, start, offset, low, depth);
        return;
      default:
        break;
    }
    throw PropertyListError("An object has an unknown marker", start);
  }

  /// The count of a container, string or data: in the marker, or in an integer that follows it.
  std::size_t count(std::size_t& offset, std::uint8_t low) {
    if (low != 0x0F) {
      return low;
    }
    take(offset, 1);
    const std::uint8_t marker = bytes_[offset];
    if (marker >> 4 != 1 || (marker & 0x0F) > 3) {
      throw PropertyListError("A count is no integer", offset);
    }
    const std::size_t width = std::size_t{1} << (marker & 0x0F);
    take(offset + 1, width);
    const std::uint64_t value = bigEndian(offset + 1, width);
    offset += 1 + width;
    return value;
  }

  std::string_view text(std::size_t offset, std::size_t length) const {
    return {reinterpret_cast<const char*>(bytes_.data()) + offset, length};
  }

  static PropertyList ascii(std::string_view bytes) {
    for (const char byte : bytes) {
      if (static_cast<std::uint8_t>(byte) > 127) {
        return replacedAscii(bytes);
      }
    }
    return bytes;
  }

  static PropertyList replacedAscii(std::string_view bytes) {
    std::string replaced;
    for (const char byte : bytes) {
      appendUtf8(replaced,
                 static_cast<std::uint8_t>(byte) > 127 ? kReplacementCharacter : static_cast<char32_t>(byte));
    }
    return replaced;
  }

  PropertyList integer(std::size_t offset, std::uint8_t low) {
    if (low > 4) {
      throw PropertyListError("An integer is wider than 16 bytes", offset - 1);
    }
    const std::size_t width = std::size_t{1} << low;
    take(offset, width);
    if (width < 8) {
      return PropertyList::integer(static_cast<std::int64_t>(bigEndian(offset, width)));
    }
    if (width == 8) {
      return PropertyList::integer(static_cast<std::int64_t>(bigEndian(offset, 8)));
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
    throw PropertyListError("An integer does not fit 64 bits", offset - 1);
  }

  PropertyList real(std::size_t offset, std::uint8_t low) {
    if (low != 2 && low != 3) {
      throw PropertyListError("A real is neither 4 nor 8 bytes wide", offset - 1);
    }
    take(offset, low == 2 ? 4 : 8);
    return low == 2
               ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(offset, 4))))
               : std::bit_cast<double>(bigEndian(offset, 8));
  }

  /// A member of the container at `start`, whose height grows by it.
  const PropertyList& member(Object& container, std::size_t start, std::size_t referenceOffset, int depth) {
    const std::uint64_t reference = bigEndian(referenceOffset, referenceSize_);
    if (reference >= objects_.size()) {
      throw PropertyListError("A container refers to an object that does not exist", start);
    }
    const Object& found = object(reference, depth + 1);
    container.height =
        std::max<std::uint16_t>(container.height, static_cast<std::uint16_t>(found.height + 1));
    container.values += found.values;
    if (container.values > std::max(kMostValues, kMostValuesPerByte * bytes_.size())) {
      throw PropertyListError("Shared objects make too many values", start);
    }
    return found.value;
  }

  void beginContainer(Object& target, std::size_t start, int depth) const {
    if (depth > PropertyListSerialization::kMaximumDepth) {
      throw PropertyListError("Containers are nested too deep", start);
    }
    target.height = 1;
  }

  void readArray(Object& target, std::size_t start, std::size_t offset, std::uint8_t low, int depth) {
    beginContainer(target, start, depth);
    const std::size_t length = count(offset, low);
    take(offset, length, referenceSize_);
    PropertyList::Array elements;
    elements.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
      elements.push_back(member(target, start, offset + i * referenceSize_, depth));
    }
    target.value = PropertyList::array(std::move(elements));
  }

  void readDictionary(Object& target, std::size_t start, std::size_t offset, std::uint8_t low, int depth) {
    beginContainer(target, start, depth);
    const std::size_t length = count(offset, low);
    take(offset, length, 2 * referenceSize_);
    PropertyList::Entries entries;
    entries.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
      const PropertyList& key = member(target, start, offset + i * referenceSize_, depth);
      if (!key.isString()) {
        throw PropertyListError("A dictionary has a key that is no string", start);
      }
      entries.emplace_back(key, member(target, start, offset + (length + i) * referenceSize_, depth));
    }
    target.value = PropertyList::dictionary(std::move(entries));
  }

  BytesView bytes_;
  std::size_t offsetSize_ = 0, referenceSize_ = 0;
  std::uint64_t topObject_ = 0, offsetTable_ = 0;
  std::uint64_t taken_ = 0;
  std::vector<Object> objects_;
};

}  // namespace

PropertyList readBinaryPropertyList(BytesView bytes) { return Reader(bytes).read(); }

}  // namespace keldane
