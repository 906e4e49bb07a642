#include "platform/plist/binary/ByteMarks.h"

#include <cstring>

namespace keldane {

ByteMarks marksOf(const char* bytes, std::size_t size) {
  static const char anchor = 0;  // its address differs from process to process
  constexpr std::uint64_t kFirst = 0x9E3779B97F4A7C15;
  constexpr std::uint64_t kSecond = 0xD6E8FEB86659FD93;
  const auto word = [](const char* at, std::size_t count) {
    std::uint64_t value = 0;
    std::memcpy(&value, at, count);
    return value;
  };
  std::uint64_t hash = (reinterpret_cast<std::uintptr_t>(&anchor) * kSecond) ^ size;
  std::uint64_t all = 0;
  for (; size > 8; bytes += 8, size -= 8) {
    const std::uint64_t next = word(bytes, 8);
    all |= next;
    hash = mixed(hash ^ next, kFirst);
  }
  const std::uint64_t tail = size == 8   ? word(bytes, 8)
                             : size >= 4 ? word(bytes, 4) << 32 | word(bytes + size - 4, 4)
                             : size > 0  ? std::uint64_t{static_cast<std::uint8_t>(bytes[0])} << 16 |
                                              std::uint64_t{static_cast<std::uint8_t>(bytes[size / 2])} << 8 |
                                              static_cast<std::uint8_t>(bytes[size - 1])
                                        : 0;
  const bool isAscii = ((all | tail) & 0x8080808080808080U) == 0;
  return {ByteMarks::kKnown | (isAscii ? ByteMarks::kAscii : 0),
          static_cast<std::uint32_t>(mixed(hash ^ tail, kSecond))};
}

}  // namespace keldane
