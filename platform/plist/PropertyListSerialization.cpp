#include "platform/plist/PropertyListSerialization.h"

#include <algorithm>

#include "platform/plist/PropertyListError.h"
#include "platform/plist/TextPropertyListReader.h"
#include "platform/plist/binary/BinaryPropertyListReader.h"
#include "platform/plist/binary/BinaryPropertyListWriter.h"
#include "platform/plist/binary/Format.h"
#include "platform/plist/xml/XmlPropertyListReader.h"
#include "platform/plist/xml/XmlPropertyListWriter.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

using Format = PropertyListSerialization::Format;

PropertyList readText(std::string_view text, Format& format) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  // "<" also begins the data of the old text format, where a hexadecimal digit or a blank follows.
  const bool xml =
      first != std::string_view::npos && text[first] == '<' && first + 1 < text.size() &&
      (text[first + 1] == '?' || text[first + 1] == '!' ||
       std::string_view("plist dict array string integer real date data true false key")
               .find(text.substr(first + 1, std::min<std::size_t>(4, text.size() - first - 1))) !=
           std::string_view::npos);
  format = xml ? Format::xml : Format::openStep;
  return xml ? readXmlPropertyList(text) : readTextPropertyList(text);
}

PropertyList readAny(BytesView bytes, Format& format, PropertyList::Keys* usualKeys) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (text.empty()) {
    throw PropertyListError("There are no bytes to read a property list from.");
  }
  if (text.starts_with("bplist")) {
    format = Format::binary;
    if (!text.starts_with(kBinaryPropertyListMagic)) {
      throw PropertyListError("The binary property list is not of version 00", 6);
    }
    return readBinaryPropertyList(bytes, usualKeys);
  }
  if (text.starts_with("\xEF\xBB\xBF")) {
    return readText(validUtf8(text.substr(3)), format);
  }
  if (text.starts_with("\xFE\xFF") || text.starts_with("\xFF\xFE")) {
    return readText(utf8FromUtf16(text.substr(2), text[0] == '\xFE'), format);
  }
  return readText(validUtf8(text), format);
}

}  // namespace

std::optional<Bytes> PropertyListSerialization::dataFromPropertyList(const PropertyList& value, Format format,
                                                                     std::string* errorDescription) {
  try {
    switch (format) {
      case Format::binary:
        return writeBinaryPropertyList(value);
      case Format::xml:
        return writeXmlPropertyList(value);
      case Format::openStep:
        break;
    }
    throw PropertyListError("The format is not one that can be written.");
  } catch (const PropertyListError& error) {
    if (errorDescription != nullptr) {
      *errorDescription = error.what();
    }
    return std::nullopt;
  }
}

PropertyList PropertyListSerialization::propertyListFromData(BytesView bytes, std::string* errorDescription,
                                                             Format* format, PropertyList::Keys* usualKeys) {
  Format found = Format::openStep;
  try {
    PropertyList value = readAny(bytes, found, usualKeys);
    if (format != nullptr) {
      *format = found;
    }
    return value;
  } catch (const PropertyListError& error) {
    if (errorDescription != nullptr) {
      *errorDescription = error.what();
    }
    return {};
  }
}

}  // namespace keldane
