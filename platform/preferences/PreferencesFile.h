// The file of a preferences domain. Several processes may read, change and replace it at the same time.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "platform/files/Descriptor.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// One file of preferences. Processes exclude each other by a lock on a file beside it. Within a process the
/// caller must exclude other threads.
class PreferencesFile {
 public:
  /// A symbolic link is followed to its file, so that replacing the file keeps the link.
  explicit PreferencesFile(const std::filesystem::path& path);

  /// Reads the dictionary. It is empty when there is no file, or when the file is no property list and was
  /// set aside. False, with `values` untouched, when the file cannot be read now.
  bool read(PropertyList& values);
  /// Reads the file's present content, applies the changes, writes the result and returns it in `values`. An
  /// absent value removes its key. On failure it logs a line, leaves the file unchanged and returns false.
  bool merge(const std::map<std::string, PropertyList>& changes, PropertyList& values);

 private:
  enum class Reading { done, damaged, failed };
  Reading readOnce(PropertyList& values);
  bool readLocked(PropertyList& values);
  Descriptor lock();
  bool setAside();
  bool replace(const Bytes& bytes);

  std::filesystem::path path_;
  std::string reason_;  ///< the reason for the failure of the last reading
};

}  // namespace keldane
