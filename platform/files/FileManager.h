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

/// Stateless; any thread. Paths are POSIX paths; one that holds a NUL byte exists nowhere.
class FileManager {
 public:
  /// Follows symbolic links. `isDirectory` is written only when the item exists.
  static bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
  /// Absent when the item cannot be looked at. `traverseLink` says whether a final symbolic link is followed.
  static std::optional<FileAttributes> fileAttributesAtPath(const std::string& path, bool traverseLink);
  static bool isReadableFileAtPath(const std::string& path);
  /// The name to show for a path: its last component.
  static std::string displayNameAtPath(const std::string& path);
};

class Workspace {
 public:
  /// Opens the file with the desktop's own opener: the host's if it supplied one, else `xdg-open`, or
  /// `gio launch` for a launcher (*.desktop), started without a shell and not waited for. An absent path
  /// reaches the host's opener as it is; nothing else is started for it. Answers whether an opener was
  /// started.
  static bool openFile(const std::optional<std::string>& path);
};

}  // namespace keldane
