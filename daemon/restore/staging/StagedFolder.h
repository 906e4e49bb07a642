// The folders of a staging. They may have been restored with modes that deny access even to their owner.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/files/Descriptor.h"

namespace keldane {

/// An open folder that can be read and changed whatever its mode is. The destructor restores mode and times,
/// so that adding or removing items leaves no trace. Used on one thread.
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
  /// The status of the folder before it was opened.
  const struct stat& status() const { return status_; }

 private:
  struct stat status_ {};
  Descriptor folder_;
};

/// The names in an open folder, in no order.
std::vector<std::string> namesIn(int folder);

/// Removes an item with everything below it. Links are not followed, and mount points below are left alone.
void removeTree(int parent, const std::string& name);

/// The regular files, links and special files of a tree.
struct TreeCount {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;  ///< of regular files
};
/// Counts an item with everything below it.
TreeCount countTree(int parent, const std::string& name);

/// Asks for each item of a tree that is no folder whether it is to stay, and removes the others. A folder
/// that becomes empty is removed too. `path` precedes the names that are passed to `stays`.
using Stays = std::function<bool(int folder, const std::string& name, const std::string& path,
                                 const struct stat& status)>;
void filterTree(int folder, const std::string& path, const Stays& stays);

}  // namespace keldane
