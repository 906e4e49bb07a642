// Puts a tree of restored files in its place, item by item.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemon/restore/placing/CopyItem.h"
#include "daemon/restore/staging/StagedFolder.h"

namespace keldane {

/// The target of restored files: an open folder, and the current folder somewhere below it. The operations
/// return error numbers; 0 is success. Used on one thread.
class PlaceTarget {
 public:
  PlaceTarget() = default;
  virtual ~PlaceTarget() = default;
  PlaceTarget(const PlaceTarget&) = delete;
  PlaceTarget& operator=(const PlaceTarget&) = delete;

  /// Moves a staged folder with everything in it, if nothing has its name. After any error the caller enters
  /// the folder and places its items one by one.
  virtual int moveFolder(int from, const std::string& name) = 0;
  /// Enters the folder of that name, which is made when it is missing. ELOOP means that a symbolic link is in
  /// the way, ENOTDIR that a file is.
  virtual int enter(const StagedFolder& staged, const std::string& name) = 0;
  /// Goes back to the parent folder. A folder that `enter` made gets the metadata of the staged one; the
  /// answer is the error of metadata that could not be set.
  virtual int leave(const StagedFolder& staged) = 0;
  /// Places a file, link or special file, which is then no longer in the staged folder.
  virtual PlaceResult place(int from, const std::string& name) = 0;
};

/// Moves items by renaming, and copies them when they cannot be renamed.
class DirectTarget : public PlaceTarget {
 public:
  struct Options {
    Conflict conflict = Conflict::keepBoth;
    /// The name of unfinished copies in any folder. The rules bar such names from the backup.
    std::string temporaryName = {};
    bool keepTimes =
        false;           ///< folders that are there already keep their times: the target is itself a staging
    bool again = false;  ///< an earlier attempt was cut off
    std::function<bool()> mayGoOn = {};  ///< asked at intervals while a file is copied
  };
  DirectTarget(Descriptor root, Options options);
  int moveFolder(int from, const std::string& name) override;
  int enter(const StagedFolder& staged, const std::string& name) override;
  int leave(const StagedFolder& staged) override;
  PlaceResult place(int from, const std::string& name) override;

 private:
  struct Level {
    Descriptor folder;
    bool isMade = false;
    struct stat status {};
  };
  const Options options_;
  std::vector<Level> levels_;
};

/// The functions that are called while a tree is placed, on the placing thread.
struct PlaceWatch {
  /// Asked before each item; false ends the work.
  std::function<bool()> mayGoOn;
  std::function<void(const std::string& path)> begins;
  std::function<void(const TreeCount& count)> placed;
  std::function<void(const TreeCount& count)> skipped;
  /// An item with everything in it was not placed, or it was placed without some of its metadata.
  std::function<void(const TreeCount& count, const std::string& sentence)> failed;
  std::function<void(const std::string& sentence)> incomplete;
};

/// Places the contents of a staged folder below the target's root. `path` is the root's path for messages.
/// Returns whether the work was completed.
bool placeTree(int stagedFolder, const std::string& path, PlaceTarget& target, const PlaceWatch& watch);

/// A sentence that says why an item was not placed.
std::string placeProblem(const std::string& path, int error);

}  // namespace keldane
