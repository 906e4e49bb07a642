// Watches on whole file systems.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "platform/files/Descriptor.h"

namespace keldane {

/// One fanotify instance. It needs no watch for each folder, but it reports every change on a file system,
/// and only the system's administrator may use it. Used by one thread at a time.
class FileSystemWatches {
 public:
  using FileSystem = std::array<std::int32_t, 2>;  ///< the kernel's number for it

  FileSystemWatches();

  /// The descriptor to poll and to read events from; below 0 without the rights.
  int descriptor() const { return events_.get(); }

  /// Reports all changes on the file system of a folder from now on. The paths lie below `mountPoint` if the
  /// file system is mounted there. Returns false when the kernel refuses.
  bool add(const std::string& folder, const std::string& mountPoint);

  /// Called with a folder, the name of the entry that has changed, empty for the folder itself, and the bits
  /// that inotify has for it. IN_Q_OVERFLOW comes alone.
  using Tell = std::function<void(const std::string& folder, std::string_view name, std::uint32_t mask)>;
  /// Reads the events that have come. Returns the number of their bytes.
  std::size_t read(const Tell& tell);

 private:
  class FolderFinder;

  Descriptor events_;
  std::map<FileSystem, std::set<std::string>> anchors_;  // folders through which the others are found
};

}  // namespace keldane
