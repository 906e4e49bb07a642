// The folders and their watches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/files/Descriptor.h"

namespace keldane {

/// The watches of one inotify instance, each on a folder's direct entries. The kernel watches the folder that
/// a path named when the watch was added, not the path. So the caller drops the path of a folder that was
/// moved, with everything below it, and adds the new path. A folder with two paths has one watch and both
/// paths. Used by one thread at a time.
class FolderWatches {
 public:
  /// `most` is the greatest number of watches.
  explicit FolderWatches(std::size_t most = shareOfWatches());
  /// The system's limit for a user, less a tenth for other programs.
  static std::size_t shareOfWatches();

  /// The descriptor to poll and to read events from; below 0 when the system gave none.
  int descriptor() const { return inotify_.get(); }

  /// The events that a folder's watch reports.
  enum class Depth : std::uint8_t {
    names,  ///< entries that appear and disappear
    files,  ///< also changes of files, because single files in it belong to the backup
    whole   ///< all events, because the folder lies in a place
  };
  enum class Outcome { watched, noneLeft, notThere };
  /// Watches a folder, or adds events to its watch. The folder is known afterwards, unless it does not exist.
  Outcome add(const std::string& folder, Depth depth);
  /// Notes a folder without a watch.
  void addUnwatched(const std::string& folder);
  /// Notes a folder whose changes come from another source.
  void addTold(const std::string& folder);

  /// Whether a folder's watch reports at least these events.
  bool isWatched(const std::string& folder, Depth depth) const;
  /// Whether a folder is known with Depth::whole, with a watch or without.
  bool isWhole(const std::string& folder) const;
  /// Drops a folder with all below it.
  void drop(const std::string& folder);
  /// Drops the folders for which `keep` returns false.
  template <class Keep>
  void dropUnless(const Keep& keep);
  /// Drops the folders of a watch that the kernel has ended.
  void forget(int watch);
  /// The paths of the folder that a watch is on.
  std::vector<std::string> foldersOf(int watch) const;

  /// At most `most` known folders without a watch, in the order of their paths, from the first after `last`.
  std::vector<std::string> unwatchedAfter(std::string_view last, std::size_t most) const;
  std::size_t watched() const { return byNumber_.size(); }
  std::size_t unwatched() const { return watches_.size() - byNumber_.size() - told_; }

 private:
  static constexpr int kNone = -1, kTold = -2;
  struct Watch {
    int number = kNone;  // the kernel's number of the watch
    Depth depth = Depth::names;
  };
  using Watches = std::map<std::string, Watch, std::less<>>;

  void connect(Watches::iterator watch, int number);
  void disconnect(Watches::iterator watch);
  Watches::iterator erase(Watches::iterator watch);

  const std::size_t most_;
  Descriptor inotify_;
  Watches watches_;
  std::unordered_multimap<int, const std::string*> byNumber_;  // keys of watches_
  std::size_t told_ = 0;                                       // the folders with kTold
};

template <class Keep>
void FolderWatches::dropUnless(const Keep& keep) {
  for (auto watch = watches_.begin(); watch != watches_.end();) {
    watch = keep(watch->first) ? std::next(watch) : erase(watch);
  }
}

}  // namespace keldane
