// Reads property lists in any format from standard input and writes them in another format to standard
// output, many in one run. Each piece of input and output is one character, a length in 32 bits in this
// machine's byte order, and as many bytes. The character of an input is 'b' or 'x', the wanted format. That
// of an output is '+' before a property list, or '-' before a sentence that says why there is none.
#include <iostream>
#include <optional>
#include <string>

#include "platform/plist/PropertyListSerialization.h"

namespace {

using namespace keldane;

bool readPiece(char& letter, Bytes& bytes) {
  std::uint32_t length = 0;
  if (!std::cin.get(letter) || !std::cin.read(reinterpret_cast<char*>(&length), sizeof(length))) {
    return false;
  }
  bytes.resize(length);
  return static_cast<bool>(std::cin.read(reinterpret_cast<char*>(bytes.data()), length));
}

void writePiece(char letter, const void* bytes, std::size_t size) {
  const auto length = static_cast<std::uint32_t>(size);
  std::cout.put(letter).write(reinterpret_cast<const char*>(&length), sizeof(length));
  std::cout.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
}

void convert(char letter, const Bytes& bytes) {
  const auto format =
      letter == 'b' ? PropertyListSerialization::Format::binary : PropertyListSerialization::Format::xml;
  std::string error;
  const PropertyList value = PropertyListSerialization::propertyListFromData(bytes, &error);
  const std::optional<Bytes> written =
      value ? PropertyListSerialization::dataFromPropertyList(value, format, &error) : std::nullopt;
  if (written) {
    writePiece('+', written->data(), written->size());
  } else {
    writePiece('-', error.data(), error.size());
  }
}

}  // namespace

int main() {
  char letter = '\0';
  Bytes bytes;
  while (readPiece(letter, bytes)) {
    convert(letter, bytes);
  }
  return std::cin.gcount() == 0 && std::cout.flush() ? 0 : 1;
}
