// The direct entries of a folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/rules/IgnoreList.h"
#include "daemon/store/Store.h"
#include "platform/files/Descriptor.h"

namespace keldane {

/// Reads one folder after the other and uses the same memory again. It returns files and links with their
/// state, and folders with their names; it ignores sockets, pipes and devices. Used on one thread.
class FolderEntries {
 public:
  struct File {
    std::string_view name;  ///< valid until the next folder is read; a zero byte follows it
    FileState state;
    uid_t owner = 0;  ///< the result of ownerOf()
  };

  /// Reads a folder, which stays open until close(); a final symbolic link is not followed. Returns 0 or the
  /// error's number. `cacheTag` and `attribute` say which marks are looked for.
  int read(const std::string& folder, bool cacheTag, bool attribute);
  /// Closes the folder. A file system with an open folder cannot be unmounted.
  void close() { folder_ = Descriptor(); }

  const std::vector<File>& files() const { return files_; }                  ///< by name
  const std::vector<std::string_view>& folders() const { return folders_; }  ///< by name
  /// The mark of the folder itself that excludes it from the backup.
  Mark mark() const { return mark_; }
  /// Whether a file of files() has the attribute that excludes it from the backup. `folder` is the path that
  /// was read, and it is still open.
  bool isMarked(std::string_view name, const std::string& folder) const;

 private:
  struct Found {
    std::size_t offset = 0;  // of the name
    std::size_t length = 0;
    bool isFolder = false;
    FileState state;
    uid_t owner = 0;
  };
  int readEntries(bool cacheTag);
  void sort();
  bool hasValidTag() const;

  Descriptor folder_;
  std::string names_;
  std::vector<Found> found_;
  std::vector<File> files_;
  std::vector<std::string_view> folders_;
  Mark mark_ = Mark::none;
};

/// Whether an item has the attribute that excludes it from the backup. Links cannot have it.
bool hasNoBackupAttribute(const std::string& path);

inline constexpr std::string_view kCacheTagName = "CACHEDIR.TAG";

}  // namespace keldane
