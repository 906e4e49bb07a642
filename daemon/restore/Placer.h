// Bringing a tree of restored files to its place, item after item.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemon/restore/CopyItem.h"
#include "daemon/restore/StagedFolder.h"

namespace keldane {

/// Where restored files go: a folder that is open, and a way down from it. Error numbers are answered as they
/// are; 0 is success. One thread.
class PlaceTarget {
 public:
  PlaceTarget() = default;
  virtual ~PlaceTarget() = default;
  PlaceTarget(const PlaceTarget&) = delete;
  PlaceTarget& operator=(const PlaceTarget&) = delete;

  /// Moves a staged folder with all that is in it, if nothing has its name. Any error means that it is to be
  /// entered, and its items placed one by one.
  virtual int moveFolder(int from, const std::string& name) = 0;
  /// Goes down to the folder of that name, which is made when it is not there. ELOOP: a symbolic link is in
  /// the way, ENOTDIR: a file is.
  virtual int enter(const StagedFolder& staged, const std::string& name) = 0;
  /// Goes up again. A folder that `enter` made gets the metadata of the staged one; answers what could not be
  /// set.
  virtual int leave(const StagedFolder& staged) = 0;
  /// Places a file, link or special file, which is then no longer in the staged folder.
  virtual PlaceResult place(int from, const std::string& name) = 0;
};

/// Moves by renaming, and copies where that cannot be done.
class DirectTarget : public PlaceTarget {
 public:
  struct Options {
    Conflict conflict = Conflict::keepBoth;
    /// For copies, in whatever folder; of the kind that is barred from the backup.
    std::string temporaryName = {};
    bool keepTimes =
        false;           ///< folders that are there already keep their times: the target is itself a staging
    bool again = false;  ///< an earlier attempt was cut off
    std::function<bool()> mayGoOn = {};  ///< asked now and then while a file is copied
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

/// What is told of a tree that is being placed. Called on the thread that places.
struct PlaceWatch {
  /// Asked before each item; false ends it.
  std::function<bool()> mayGoOn;
  std::function<void(const std::string& path)> begins;
  std::function<void(const TreeCount& count)> placed;
  std::function<void(const TreeCount& count)> skipped;
  /// An item, with all that is in it, is not placed; or it is, and its metadata is not all there.
  std::function<void(const TreeCount& count, const std::string& sentence)> failed;
  std::function<void(const std::string& sentence)> incomplete;
};

/// Places what is in a staged folder below the target's root. `path` is the root's, for those who read of it.
/// Answers whether it came to the end.
bool placeTree(int stagedFolder, const std::string& path, PlaceTarget& target, const PlaceWatch& watch);

/// The sentence that says why an item has not got its place.
std::string placeProblem(const std::string& path, int error);

}  // namespace keldane
