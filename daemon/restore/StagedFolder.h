// Folders of a staging, which may have been restored with modes that would keep their own owner out.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/files/Descriptor.h"

namespace keldane {

/// An open folder that can be read and changed whatever its mode is. Mode and times are given back when it
/// goes, so that what is taken out of it, or put into it, leaves no trace. One thread.
class StagedFolder {
 public:
  /// Opens `name` in a folder that only this process changes. Not open when it is no folder, with the reason
  /// in errno.
  StagedFolder(int parent, const std::string& name);
  ~StagedFolder();
  StagedFolder(StagedFolder&& other) noexcept = default;
  StagedFolder& operator=(StagedFolder&&) = delete;
  StagedFolder(const StagedFolder&) = delete;
  StagedFolder& operator=(const StagedFolder&) = delete;

  explicit operator bool() const { return static_cast<bool>(folder_); }
  int get() const { return folder_.get(); }
  /// As it was found.
  const struct stat& status() const { return status_; }

 private:
  struct stat status_ {};
  Descriptor folder_;
};

/// The names in an open folder, in no order.
std::vector<std::string> namesIn(int folder);

/// Removes an item with all below it, links not followed. A mount point below is left alone.
void removeTree(int parent, const std::string& name);

/// The regular files, links and special files of a tree.
struct TreeCount {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;  ///< of regular files
};
/// Of an item with all below it.
TreeCount countTree(int parent, const std::string& name);

/// Asks of each item in a tree that is no folder whether it is to stay, and removes what is not. A folder
/// that is empty because of that goes too. `path` stands before the names that `stays` is given.
using Stays = std::function<bool(int folder, const std::string& name, const std::string& path,
                                 const struct stat& status)>;
void filterTree(int folder, const std::string& path, const Stays& stays);

}  // namespace keldane
