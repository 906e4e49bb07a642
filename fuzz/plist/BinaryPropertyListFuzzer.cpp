// The reader of binary property lists.
#include "platform/plist/binary/BinaryPropertyListReader.h"

#include "fuzz/plist/PropertyLists.h"
#include "platform/plist/PropertyListError.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

/// The property list, or the reason why it is refused.
std::pair<PropertyList, std::string> read(BytesView bytes, PropertyList::Keys* usualKeys) {
  try {
    return {readBinaryPropertyList(bytes, usualKeys), ""};
  } catch (const PropertyListError& error) {
    require(*error.what() != '\0', "a refusal says why");
    return {{}, error.what()};
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto [value, refusal] = read({data, size}, nullptr);
  PropertyList::Keys keys;
  for (int i = 0; i < 2; ++i) {  // the second reading uses the keys of the first
    const auto [again, refusalAgain] = read({data, size}, &keys);
    require(again.description() == value.description() && refusalAgain == refusal,
            "the usual keys change nothing of what is read");
  }
  if (!value) {
    return 0;
  }
  checkRoundTrips(value);
  return 0;
}
