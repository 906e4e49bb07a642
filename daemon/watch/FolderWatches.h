// Which folder has which watch of the kernel.
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

/// The watches of one inotify instance, each on a folder's direct entries. The kernel watches what a path
/// leads to when it is added, not the path: who is told that a folder was moved drops its path with all below
/// and adds the new one. A folder that can be reached by two paths has one watch and both paths. One thread
/// at a time.
class FolderWatches {
 public:
  /// Takes at most so many watches of the kernel.
  explicit FolderWatches(std::size_t most = shareOfWatches());
  /// What the system gives a user, less a tenth that is left for other programs.
  static std::size_t shareOfWatches();

  /// To wait for and to read events from; below 0 when the system gave none.
  int descriptor() const { return inotify_.get(); }

  /// How much a folder's watch tells.
  enum class Depth : std::uint8_t {
    names,  ///< entries that appear and go
    files,  ///< and changes of files, for what is wanted of them
    whole   ///< everything, as something lies in it that belongs to a place
  };
  enum class Outcome { watched, noneLeft, notThere };
  /// Watches a folder, or watches it better than before. It is known afterwards unless it is not there.
  Outcome add(const std::string& folder, Depth depth);
  /// Keeps a folder in mind that is not to be watched.
  void addUnwatched(const std::string& folder);
  /// Keeps a folder in mind of which somebody else tells.
  void addTold(const std::string& folder);

  /// Whether a folder is watched at least that well.
  bool isWatched(const std::string& folder, Depth depth) const;
  /// Whether a folder is known as one that everything is to be told of, watched or not.
  bool isWhole(const std::string& folder) const;
  /// Drops a folder with all below it.
  void drop(const std::string& folder);
  /// Drops all that `keep` does not want.
  template <class Keep>
  void dropUnless(const Keep& keep);
  /// Drops what a watch of the kernel stands for, as it has ended.
  void forget(int watch);
  /// The paths that a watch stands for.
  std::vector<std::string> foldersOf(int watch) const;

  /// Folders that are known and not watched, in the order of their paths after `last`, at most `most`.
  std::vector<std::string> unwatchedAfter(std::string_view last, std::size_t most) const;
  std::size_t watched() const { return byNumber_.size(); }
  std::size_t unwatched() const { return watches_.size() - byNumber_.size() - told_; }

 private:
  static constexpr int kNone = -1, kTold = -2;
  struct Watch {
    int number = kNone;  // of the kernel
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
  std::size_t told_ = 0;                                       // those of kTold
};

template <class Keep>
void FolderWatches::dropUnless(const Keep& keep) {
  for (auto watch = watches_.begin(); watch != watches_.end();) {
    watch = keep(watch->first) ? std::next(watch) : erase(watch);
  }
}

}  // namespace keldane
