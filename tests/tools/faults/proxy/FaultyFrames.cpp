#include "tests/tools/faults/proxy/FaultyFrames.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <utility>

#include "platform/plist/PropertyListSerialization.h"

namespace keldane::testing {

namespace {

PropertyList ofAnotherKind(const PropertyList& value) {
  switch (value.kind()) {
    case PropertyList::Kind::string:
      return 7;
    case PropertyList::Kind::number:
      return value.numberKind() == PropertyList::NumberKind::boolean ? PropertyList(1.5)
                                                                     : PropertyList(value.description());
    case PropertyList::Kind::array:
      return PropertyList::dictionary({{"simpleFlags", 2}});
    case PropertyList::Kind::dictionary:
      return PropertyList::array({value});
    default:
      return PropertyList::data({});
  }
}

/// The value with its `left`-th part replaced by a value of another kind. The parts are counted depth first,
/// beginning with the value itself; `left` is counted down.
PropertyList withOneSwapped(const PropertyList& value, std::uint32_t& left) {
  if (left-- == 0) {
    return ofAnotherKind(value);
  }
  if (value.isArray()) {
    PropertyList::Array elements;
    for (std::size_t i = 0; i < value.count(); ++i) {
      elements.push_back(withOneSwapped(value[i], left));
    }
    return PropertyList::array(std::move(elements));
  }
  if (value.isDictionary()) {
    PropertyList::Entries entries;
    for (std::size_t i = 0; i < value.count(); ++i) {
      entries.emplace_back(value.entry(i).first, withOneSwapped(value.entry(i).second, left));
    }
    return PropertyList::dictionary(std::move(entries));
  }
  return value;
}

}  // namespace

std::uint32_t numberAt(const std::string& frame, std::size_t at) {
  std::uint32_t number = 0;
  std::memcpy(&number, frame.data() + at, sizeof(number));
  return number;
}

void setNumberAt(std::string& frame, std::size_t at, std::uint32_t number) {
  std::memcpy(frame.data() + at, &number, sizeof(number));
}

std::string garbageOf(const Fault& fault) {
  std::mt19937 engine(fault.at * 1000003U + fault.amount);
  std::string bytes(fault.amount, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(engine()); });
  return bytes;
}

std::string withValueSwapped(const std::string& frame, std::uint32_t number) {
  const std::string payload = frame.substr(kHeader);
  const PropertyList value = PropertyListSerialization::propertyListFromData(
      {reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()}, nullptr);
  std::uint32_t left = number;
  const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
      withOneSwapped(value, left), PropertyListSerialization::Format::binary, nullptr);
  if (!bytes) {
    return frame;  // it had no payload
  }
  std::string swapped = frame.substr(0, kHeader) + std::string(bytes->begin(), bytes->end());
  setNumberAt(swapped, kLengthAt, static_cast<std::uint32_t>(bytes->size()));
  return swapped;
}

}  // namespace keldane::testing
