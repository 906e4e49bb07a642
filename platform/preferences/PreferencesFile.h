// The file of a preferences domain. Several processes may read, change and replace it at the same time.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "platform/files/Descriptor.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// One file of preferences. Processes exclude each other by a lock on a file beside it; within a process the
/// caller does.
class PreferencesFile {
 public:
  /// A symbolic link is followed to the file that it stands for, so that replacing it keeps the link.
  explicit PreferencesFile(const std::filesystem::path& path);

  /// Reads the dictionary. It is empty when there is no file, or when the file is no property list and was
  /// set aside. False, with `values` untouched, when the file cannot be read now.
  bool read(PropertyList& values);
  /// Reads what the file holds now, applies the changes (an absent value removes its key), writes the result
  /// and answers it in `values`. False when that cannot be done, with a log line; the file is then as it was.
  bool merge(const std::map<std::string, PropertyList>& changes, PropertyList& values);

 private:
  enum class Reading { done, damaged, failed };
  Reading readOnce(PropertyList& values);
  bool readLocked(PropertyList& values);
  Descriptor lock();
  bool setAside();
  bool replace(const Bytes& bytes);

  std::filesystem::path path_;
  std::string reason_;  ///< why the last reading did not succeed
};

}  // namespace keldane
