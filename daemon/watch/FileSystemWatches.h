// What the kernel tells of whole file systems.
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

/// One fanotify instance. It takes no watch for each folder, yet tells of everything that anybody changes on
/// a file system, and needs the rights of the system's administrator. One thread at a time.
class FileSystemWatches {
 public:
  using FileSystem = std::array<std::int32_t, 2>;  ///< the kernel's number of it

  FileSystemWatches();

  /// To wait for and to read events from; below 0 without the rights.
  int descriptor() const { return events_.get(); }

  /// From now on everything is told that changes on the file system of a folder, by paths below `mountPoint`
  /// if that file system is mounted there. False when that cannot be.
  bool add(const std::string& folder, const std::string& mountPoint);

  /// Called with a folder, the name of the entry that has changed, empty for the folder itself, and the bits
  /// that inotify has for it. IN_Q_OVERFLOW comes alone.
  using Tell = std::function<void(const std::string& folder, std::string_view name, std::uint32_t mask)>;
  /// Reads what has come. Answers the count of its bytes.
  std::size_t read(const Tell& tell);

 private:
  class FolderFinder;

  Descriptor events_;
  std::map<FileSystem, std::set<std::string>> anchors_;  // folders through which the others are found
};

}  // namespace keldane
