// The reader of property lists and strings tables in the old text format.
#include "platform/plist/TextPropertyListReader.h"

#include "fuzz/plist/PropertyLists.h"
#include "platform/plist/PropertyListError.h"

using namespace keldane;
using namespace keldane::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  PropertyList value;
  try {
    value = readTextPropertyList(validUtf8({reinterpret_cast<const char*>(data), size}));
  } catch (const PropertyListError& error) {
    require(*error.what() != '\0', "a refusal says why");
    return 0;
  }
  checkRoundTrips(value);
  // The description of a container has this format, too, except that a word in it may begin as a comment
  // does.
  const std::string description = value.description();
  if (value.count() > 0 && description.size() < kLongestDescription &&
      description.find("//") == std::string::npos) {
    require(readTextPropertyList(description).identical(value), "a description reads as what it describes");
  }
  return 0;
}
