// The data for measurements: values like those that travel between a client and the daemon.
#pragma once

#include <string>

#include "platform/plist/PropertyListSerialization.h"

namespace keldane::testing {

/// The dictionary of one file, as the daemon answers it. Two numbers never have the same path or size.
inline PropertyList nodeDictionary(int number) {
  static const PropertyList::Keys keys = {
      "fileName",    "displayName", "path",    "isDirectory", "state", "backupFlags", "simpleFlags",
      "backupColor", "backupDate",  "version", "totalCount",  "size",  "uid",         "gid"};
  const std::string name = "Quarterly report " + std::to_string(number) + ".odt";
  return PropertyList::dictionary(
      keys, {name, name, "/home/somebody/Documents/Reports/" + name, false,
             number % 3 == 0 ? "Backed up" : "Waiting to be backed up", 0x80000080U, 0x000600C3U, 3U,
             Date::fromUnixTime(1700000000 + number % 1000), 1 + number % 5, 1U,
             std::uint64_t{20480} + static_cast<std::uint64_t>(number), 1000U, 1000U});
}

/// An array in an array, to this depth; the innermost one holds text.
inline PropertyList nested(int depth) {
  PropertyList value = "leaf";
  for (int i = 0; i < depth; ++i) {
    value = PropertyList::array({value});
  }
  return value;
}

inline PropertyList nodeDictionaries(int count) {
  PropertyList::Array nodes;
  for (int i = 0; i < count; ++i) {
    nodes.push_back(nodeDictionary(i));
  }
  return PropertyList::array(std::move(nodes));
}

/// The request for one question about a path.
inline PropertyList request() {
  return PropertyList::array(
      {8U, "@", "dictionaryForPath:withDirSizes:", 2U, "@", nodeDictionary(0)["path"], "c", 0});
}

/// The daemon's state dictionary.
inline PropertyList stateDictionary() {
  return PropertyList::dictionary({
      {"state", "Backing up"},
      {"currentFile", nodeDictionary(0)["path"]},
      {"currentFileSize", 20480U},
      {"currentFileSent", 10240U},
      {"selectedFileCount", 123456U},
      {"selectedFileSize", std::uint64_t{98765432109}},
      {"backedUpFileCount", 120000U},
      {"backedupFileSize", std::uint64_t{87654321098}},
      {"pendingFileCount", 3456U},
      {"pendingFileSize", std::uint64_t{11111111011}},
      {"lastBackupDate", Date::fromUnixTime(1700000000)},
      {"nextBackupDate", Date::fromUnixTime(1700003600)},
      {"transferRate", 1250000.5},
      {"isPaused", false},
      {"isQuotaLimited", true},
      {"quota", std::uint64_t{214748364800}},
      {"accountEmail", "somebody@example.org"},
      {"serverURL", "https://backup.example.org/"},
      {"computerNumber", 7},
      {"lowPriority", false},
  });
}

inline Bytes bytesOf(const PropertyList& value, PropertyListSerialization::Format format) {
  return PropertyListSerialization::dataFromPropertyList(value, format, nullptr).value();
}

}  // namespace keldane::testing
