// Questions about files, and opening one on the desktop.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/host/FourCharCode.h"

namespace keldane {

struct FileAttributes {
  std::uint64_t size = 0;  ///< bytes
  std::uint32_t ownerAccountID = 0;
  std::uint32_t groupOwnerAccountID = 0;
  OSType hfsTypeCode = 0;  ///< from the extended attribute "user.com.apple.FinderInfo", else 0
};

/// Stateless; any thread may call it. Paths are POSIX paths. A path with a NUL byte counts as one that does
/// not exist.
class FileManager {
 public:
  /// Follows symbolic links. `isDirectory` is written only when the item exists.
  static bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
  /// Absent when the item's attributes cannot be read. `traverseLink` says whether a final symbolic link is
  /// followed.
  static std::optional<FileAttributes> fileAttributesAtPath(const std::string& path, bool traverseLink);
  static bool isReadableFileAtPath(const std::string& path);
  /// The name to show for a path: its last component.
  static std::string displayNameAtPath(const std::string& path);
};

class Workspace {
 public:
  /// Opens the file with the host's opener if it supplied one. Otherwise it starts `xdg-open`, or `gio
  /// launch` for a launcher (*.desktop), without a shell and without waiting for its end. An absent path is
  /// passed to the host's opener; without one, nothing is started for it. Returns whether an opener was
  /// started.
  static bool openFile(const std::optional<std::string>& path);
};

}  // namespace keldane
