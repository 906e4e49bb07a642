// Any value is written and read again, and any bytes are read as a file of any format.
#include "fuzz/plist/PropertyLists.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

void writeAndRead(const PropertyList& value) {
  require(readBack(written(value, Format::binary), Format::binary).identical(value),
          "binary gives back what was written");
  checkRoundTrips(value);
}

void readAndWrite(BytesView bytes) {
  std::string error;
  Format format{};
  const PropertyList value = PropertyListSerialization::propertyListFromData(bytes, &error, &format);
  require(value.isAbsent() != error.empty(), "a reader answers a value or a sentence");
  if (value) {
    checkRoundTrips(value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  if (input.number() == 0) {
    writeAndRead(input.value());
  } else {
    readAndWrite({data, size});
  }
  return 0;
}
