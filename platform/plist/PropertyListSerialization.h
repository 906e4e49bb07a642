// Converts property lists to bytes and back, in the three published formats.
#pragma once

#include <optional>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Reading and writing property lists. Stateless; any thread.
///
/// The readers take whatever bytes there are: they answer a value or a sentence that says what is wrong at
/// which byte offset, and allocate no more than a small multiple of the input.
class PropertyListSerialization {
 public:
  enum class Format : int { openStep = 1, xml = 100, binary = 200 };

  /// Containers nested deeper than this are refused by the readers and the writers.
  static constexpr int kMaximumDepth = 512;

  /// The bytes of `value` in `format` (binary or XML; the old text format is only read), or nothing and an
  /// error text: an absent value, too deep a nesting, an unknown format.
  static std::optional<Bytes> dataFromPropertyList(const PropertyList& value, Format format,
                                                   std::string* errorDescription);

  /// The value that `bytes` hold, in whichever format they are, or absent and an error text. `format`
  /// receives the format that was found. A caller that reads many dictionaries with the same keys passes the
  /// same `usualKeys`, first made without names, each time. It then holds the keys of the last dictionary,
  /// which the next one shares instead of making them again.
  static PropertyList propertyListFromData(BytesView bytes, std::string* errorDescription,
                                           Format* format = nullptr, PropertyList::Keys* usualKeys = nullptr);
};

}  // namespace keldane
