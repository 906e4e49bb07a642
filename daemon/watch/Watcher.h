// Tells what changes on the disk, as the kernel notices it.
#pragma once

#include <sys/inotify.h>

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "daemon/watch/ChangeList.h"
#include "daemon/watch/FileSystemWatches.h"
#include "daemon/watch/FolderWatches.h"
#include "daemon/watch/MountTable.h"
#include "platform/files/Descriptor.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Watches folders for somebody who walks through *places*: paths whose contents matter. Whoever walks calls
/// watch() for each folder before reading it, so nothing that happens later is missed. The folders above the
/// places are watched by themselves, so that a place may appear, go, be moved or be replaced by a mount. When
/// no watches are left for single folders, file systems are watched as wholes, if the process has the rights.
///
/// A change is told within about half a second. Changes of what is mapped into memory are not told, nor what
/// other computers do on a network file system. Any thread; the callback comes on the watcher's own thread,
/// with no lock held.
class Watcher {
 public:
  using Tell = std::function<void(const std::vector<Change>& changes)>;
  /// Takes at most so many watches of the kernel.
  explicit Watcher(Tell tell, std::size_t mostWatches = FolderWatches::shareOfWatches());
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  void start();
  void stop();

  /// Replaces the places by those that are answered, which is asked so that no place is lost that is added
  /// meanwhile. What was watched for others is watched no longer.
  using Places = std::function<std::vector<std::string>()>;
  void setPlaces(const Places& places);
  /// One more place.
  void addPlace(const std::string& place);
  /// Watches a folder at or below a place. Answers whether the folder was known before. One that cannot be
  /// watched is kept as such; the first time is logged.
  bool watch(const std::string& folder);
  bool isKnown(const std::string& folder) const;
  /// Ends the watch on a folder and on all below it.
  void forget(const std::string& folder);

  /// Folders that cannot be watched, in the order of their paths after `last`, at most `most`.
  std::vector<std::string> unwatchedAfter(std::string_view last, std::size_t most) const;
  struct Counts {
    std::size_t watched = 0, unwatched = 0;
  };
  Counts counts() const;

 private:
  void run();
  int millisecondsUntil(std::chrono::steady_clock::time_point until, bool isPausing) const;
  void readFolders();
  void readFileSystems();
  FolderWatches::Outcome add(const std::string& folder, FolderWatches::Depth depth) KELDANE_REQUIRES(mutex_);
  void overflowed() KELDANE_REQUIRES(mutex_);
  void handle(const inotify_event& event, std::string_view name) KELDANE_REQUIRES(mutex_);
  void handleNamed(const std::string& folder, std::string_view name, std::uint32_t mask)
      KELDANE_REQUIRES(mutex_);
  void readMounts();
  void treeChanged(const std::string& path) KELDANE_REQUIRES(mutex_);
  void everythingChanged() KELDANE_REQUIRES(mutex_);
  bool leadsToPlace(const std::string& path) const KELDANE_REQUIRES(mutex_);
  bool isInPlace(const std::string& path) const KELDANE_REQUIRES(mutex_);
  void watchAbove(const std::string& place) KELDANE_REQUIRES(mutex_);
  void sayOnce(bool& said, const char* sentence) KELDANE_REQUIRES(mutex_);

  const Tell tell_;
  const Descriptor wake_;
  Descriptor mountsFile_;
  mutable Mutex mutex_{{.name = "Watcher.mutex"}};
  FolderWatches watches_ KELDANE_GUARDED_BY(mutex_);
  FileSystemWatches fileSystems_ KELDANE_GUARDED_BY(mutex_);  // for folders that get no watch of their own
  ChangeList changes_ KELDANE_GUARDED_BY(mutex_);
  std::set<std::string, std::less<>> places_ KELDANE_GUARDED_BY(mutex_);
  MountTable mounts_ KELDANE_GUARDED_BY(mutex_);
  bool saidNoneLeft_ KELDANE_GUARDED_BY(mutex_) = false;
  bool saidRemote_ KELDANE_GUARDED_BY(mutex_) = false;
  bool saidOverflow_ KELDANE_GUARDED_BY(mutex_) = false;
  std::size_t lastRead_ = 0;  // bytes; of the watcher's thread
  const int folderEvents_, fileSystemEvents_;
  std::thread thread_;
};

}  // namespace keldane
