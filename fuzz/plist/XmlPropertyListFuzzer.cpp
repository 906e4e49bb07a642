// The reader of XML property lists.
#include "platform/plist/xml/XmlPropertyListReader.h"

#include "fuzz/plist/PropertyLists.h"
#include "platform/plist/PropertyListError.h"

using namespace keldane;
using namespace keldane::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  PropertyList value;
  try {
    value = readXmlPropertyList(validUtf8({reinterpret_cast<const char*>(data), size}));
  } catch (const PropertyListError& error) {
    require(*error.what() != '\0', "a refusal says why");
    return 0;
  }
  checkRoundTrips(value);
  return 0;
}
