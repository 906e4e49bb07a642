// Converts property lists to bytes and back, in the three published formats.
#pragma once

#include <optional>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// Reading and writing of property lists. Stateless; any thread may call it.
///
/// The readers accept any bytes. They return a value, or a sentence that tells the error and its byte offset.
/// They allocate no more than a small multiple of the input.
class PropertyListSerialization {
 public:
  enum class Format : int { openStep = 1, xml = 100, binary = 200 };

  /// Containers nested deeper than this are refused by the readers and the writers.
  static constexpr int kMaximumDepth = 512;

  /// The bytes of `value` in `format`, which is binary or XML; the old text format is only read. Absent, with
  /// an error text, for an absent value, too deep a nesting or an unknown format.
  static std::optional<Bytes> dataFromPropertyList(const PropertyList& value, Format format,
                                                   std::string* errorDescription);

  /// The value in `bytes`, which may be in any of the formats. On an error the result is absent and there is
  /// an error text. `format` receives the format that was found. A caller that reads many dictionaries with
  /// the same keys makes a `usualKeys` without names and passes it each time. It then holds the keys of the
  /// last dictionary, and the next dictionary shares them instead of making them again.
  static PropertyList propertyListFromData(BytesView bytes, std::string* errorDescription,
                                           Format* format = nullptr, PropertyList::Keys* usualKeys = nullptr);
};

}  // namespace keldane
