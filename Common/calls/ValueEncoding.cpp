#include "Common/calls/ValueEncoding.h"

#include <cstring>

#include "platform/objects/Exceptions.h"

namespace keldane {

namespace {

constexpr char kEncodeMethod[] = "+[KeldaneProxy encodeType:inBuffer:resultSize:]";
constexpr char kDecodeMethod[] = "+[KeldaneProxy decodeObject:toType:inBuffer:]";

// The line numbers that the assertions of these two methods show.
constexpr int kEncodeLine = 489;
constexpr int kDecodeLine = 563;

[[noreturn]] void unknownType(const char* method, int line, char code) {
  const std::string shown = code == '\0' ? std::string() : std::string(1, code);
  throw AssertionFailure(method, "Common/KeldProxy", line, "Unknown argument type specifier: " + shown);
}

template <class Raw>
PropertyList encodeRaw(const void* buffer, std::uint32_t* resultSize) {
  Raw raw;
  std::memcpy(&raw, buffer, sizeof(raw));
  if (resultSize != nullptr) {
    *resultSize = sizeof(raw);
  }
  if constexpr (std::is_same_v<Raw, const char*>) {
    return raw == nullptr ? PropertyList() : PropertyList(raw);
  } else {
    return raw;
  }
}

template <class Raw>
void store(void* buffer, Raw raw) {
  std::memcpy(buffer, &raw, sizeof(raw));
}

}  // namespace

std::uint32_t widthOfType(const char* type) {
  if (type[0] == 'v') {
    return 0;
  }
  if (type[0] == '@') {
    return sizeof(PropertyList);
  }
  const std::uint64_t zero = 0;
  std::uint32_t width = 0;
  encodeType(type, &zero, &width);
  return width;
}

PropertyList encodeType(const char* type, const void* buffer, std::uint32_t* resultSize) {
  switch (type[0]) {
    case 'c':
      return encodeRaw<signed char>(buffer, resultSize);
    case 'i':
      return encodeRaw<std::int32_t>(buffer, resultSize);
    case 's':
      return encodeRaw<std::int16_t>(buffer, resultSize);
    case 'l':
      return encodeRaw<long>(buffer, resultSize);
    case 'q':
      return encodeRaw<std::int64_t>(buffer, resultSize);
    case 'C':
      return encodeRaw<unsigned char>(buffer, resultSize);
    case 'I':
      return encodeRaw<std::uint32_t>(buffer, resultSize);
    case 'S':
      return encodeRaw<std::uint16_t>(buffer, resultSize);
    case 'L':
      return encodeRaw<unsigned long>(buffer, resultSize);
    case 'Q':
      return encodeRaw<std::uint64_t>(buffer, resultSize);
    case 'f':
      return encodeRaw<float>(buffer, resultSize);
    case 'd':
      return encodeRaw<double>(buffer, resultSize);
    case 'B':
      // Only the lowest bit counts, so a byte of 2 is false. This is kept on purpose.
      return PropertyList::boolean((encodeRaw<unsigned char>(buffer, resultSize).intValue() & 1) != 0);
    case '@':
      if (resultSize != nullptr) {
        *resultSize = sizeof(PropertyList);
      }
      return *static_cast<const PropertyList*>(buffer);
    case '*':
      return encodeRaw<const char*>(buffer, resultSize);
    default:
      unknownType(kEncodeMethod, kEncodeLine, type[0]);
  }
}

void decodeObject(const PropertyList& object, const char* type, void* buffer) {
  switch (type[0]) {
    case 'c':
      return store(buffer, object.charValue());
    case 'i':
      return store(buffer, object.intValue());
    case 's':
      return store(buffer, object.shortValue());
    case 'l':
      return store(buffer, object.longValue());
    case 'q':
      return store(buffer, object.longLongValue());
    case 'C':
      return store(buffer, object.unsignedCharValue());
    case 'I':
      return store(buffer, object.unsignedIntValue());
    case 'S':
      return store(buffer, object.unsignedShortValue());
    case 'L':
      return store(buffer, object.unsignedLongValue());
    case 'Q':
      return store(buffer, object.unsignedLongLongValue());
    case 'f':
      return store(buffer, object.floatValue());
    case 'd':
      return store(buffer, object.doubleValue());
    case 'B':
      return store(buffer, static_cast<unsigned char>(object.boolValue() ? 1 : 0));
    case '@':
      *static_cast<PropertyList*>(buffer) = object;
      return;
    case '*':
      return store(buffer, object.isString() ? object.string().data() : nullptr);
    default:
      unknownType(kDecodeMethod, kDecodeLine, type[0]);
  }
}

}  // namespace keldane
