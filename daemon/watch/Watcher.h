// Reports changes on the disk.
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

/// Watches folders for a scanner that walks through *places*, the paths whose contents belong to the backup.
/// The scanner calls watch() for each folder before it reads the folder, so no later change is missed. The
/// watcher itself watches the folders above the places, because a place may appear, disappear, be moved or be
/// replaced by a mount. When no watches are left for single folders, it watches whole file systems, if the
/// process has the rights.
///
/// A change is reported within about half a second. Changes through mapped memory are not reported, nor
/// changes that other computers make on a network file system. Used on any thread; the callback comes on the
/// watcher's own thread, with no lock held.
class Watcher {
 public:
  using Tell = std::function<void(const std::vector<Change>& changes)>;
  /// `mostWatches` is the greatest number of watches on folders.
  explicit Watcher(Tell tell, std::size_t mostWatches = FolderWatches::shareOfWatches());
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  void start();
  void stop();

  /// Replaces the places by those that `places` returns. It is called with the lock held, so that no place is
  /// lost that is added at the same time. Watches that served other places alone end.
  using Places = std::function<std::vector<std::string>()>;
  void setPlaces(const Places& places);
  /// Adds a place.
  void addPlace(const std::string& place);
  /// Watches a folder at or below a place. Returns whether the folder was known before. A folder that cannot
  /// be watched is noted as such; the first one is logged.
  bool watch(const std::string& folder);
  bool isKnown(const std::string& folder) const;
  /// Ends the watch on a folder and on all below it.
  void forget(const std::string& folder);

  /// At most `most` folders that cannot be watched, in the order of their paths, from the first after `last`.
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
