// The list of files that are to be stored.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/ByteSum.h"
#include "daemon/scan/waiting/WaitingNames.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The pending files, folder by folder, with their sizes and owners. Files that a person prefers also have an
/// order. A file takes about 53 bytes and a third of the length of its path. Used on any thread; the mutex is
/// a leaf.
class PendingFiles {
 public:
  struct Totals {
    std::uint64_t files = 0, bytes = 0;  ///< more bytes than a number holds are the largest number
  };

  /// Begins a scan and returns its number. Changes of this list from here on count as newer than the scan.
  std::uint32_t beginScan();
  /// Replaces the files of one folder by those that the scan found, in any order. Files that were added or
  /// removed after the scan had begun stay as they are. Returns whether a file is now pending that was not.
  bool setFolder(const std::string& folder, std::vector<WaitingName>& files, std::uint32_t scan);
  /// Removes the files of all folders at or below a place that the scan did not pass to setFolder(). Files
  /// that were added after the scan had begun stay.
  void endScan(const std::string& place, std::uint32_t scan);

  /// Adds a file, or takes its new size and owner. Returns whether it was not pending before.
  bool add(const std::string& path, std::uint64_t bytes, uid_t owner = 0);
  void remove(const std::string& path);
  /// Removes a file unless it was added after the scan had begun. Returns false when it is still pending.
  bool removeIfOlder(const std::string& path, std::uint32_t scan);
  /// Removes the files at or below a path for which `keep` returns false. The mutex is held for one folder at
  /// a time.
  void removeUnless(const std::string& path, const std::function<bool(const std::string& path)>& keep);

  bool contains(const std::string& path) const;
  bool containsBelow(const std::string& folder) const;
  Totals totals() const;

  /// Prefers a file, if that was not done before.
  void prefer(const std::string& path, std::int64_t order);
  /// Prefers a file behind those that are preferred. A file that is preferred already keeps its place.
  void preferNext(const std::string& path);
  void endPreference(const std::string& path);
  /// The number of the last wish for a preference. Each call of preferNext() is a wish.
  std::uint64_t lastWish() const;
  /// Ends the preference of a file, unless somebody wished for it after that wish. Returns whether one ended.
  bool endPreference(const std::string& path, std::uint64_t lastWish);
  bool isPreferred(const std::string& path) const;
  std::vector<std::string> preferred() const;
  bool hasPreferred() const;

  struct File {
    std::string path;
    std::uint64_t bytes = 0;
    uid_t owner = 0;
  };
  /// The pending files that are preferred, in the order in which they were preferred.
  std::vector<File> waitingPreferred() const;
  /// Calls `visitor` with each pending file, in the order of folders and names, until it returns false. The
  /// mutex is not held during the call.
  void visit(const std::function<bool(const File& file)>& visitor) const;

 private:
  using Folders = std::map<std::string, WaitingNames, std::less<>>;

  std::optional<WaitingName> find(std::string_view path) const KELDANE_REQUIRES(mutex_);
  void count(const WaitingNames& names, int sign) KELDANE_REQUIRES(mutex_);
  Folders::iterator dropIfEmpty(Folders::iterator folder) KELDANE_REQUIRES(mutex_);

  mutable Mutex mutex_;
  Folders folders_ KELDANE_GUARDED_BY(mutex_);  // each has at least one pending file
  std::uint64_t files_ KELDANE_GUARDED_BY(mutex_) = 0;
  ByteSum bytes_ KELDANE_GUARDED_BY(mutex_);
  std::uint32_t scan_ KELDANE_GUARDED_BY(mutex_) = 0;
  struct Preference {
    std::int64_t order = 0;
    std::uint64_t wish = 0;  // the last wish for it
  };
  std::map<std::string, Preference> preferences_ KELDANE_GUARDED_BY(mutex_);  // by path
  std::int64_t lastOrder_ KELDANE_GUARDED_BY(mutex_) = 0;
  std::uint64_t lastWish_ KELDANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace keldane
