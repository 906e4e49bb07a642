// The files that wait to be stored.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/ByteSum.h"
#include "daemon/scan/WaitingNames.h"

namespace keldane {

/// The pending files, folder by folder, with their sizes and owners and, for those that a person prefers,
/// their order. A file takes some 53 bytes more than a third of its path. Any thread; the mutex is a leaf.
class PendingFiles {
 public:
  struct Totals {
    std::uint64_t files = 0, bytes = 0;  ///< more bytes than a number holds are the largest number
  };

  /// Begins a look at the disk: what is added or removed from here on is newer than what it has seen.
  std::uint32_t beginScan();
  /// What a look that began as `scan` found waiting directly in a folder, by name. Replaces what was there,
  /// but for what was added and removed since. Answers whether a file waits that did not.
  bool setFolder(const std::string& folder, std::vector<WaitingName>& files, std::uint32_t scan);
  /// Takes out what lies in folders at or below a place for which setFolder() was not called, and what was
  /// not added, since that scan began.
  void endScan(const std::string& place, std::uint32_t scan);

  /// Notes a file that waits, or its new size and owner. True when it was not waiting before.
  bool add(const std::string& path, std::uint64_t bytes, uid_t owner = 0);
  void remove(const std::string& path);
  /// Takes out a file that was not added since that look at the disk began. False when it still waits.
  bool removeIfOlder(const std::string& path, std::uint32_t scan);
  /// Takes out the files at or below a path that are not to be kept. The mutex is not held meanwhile for
  /// longer than a folder takes.
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
  /// Ends the preference of a file, unless somebody wished for it after that wish. Answers whether one ended.
  bool endPreference(const std::string& path, std::uint64_t lastWish);
  bool isPreferred(const std::string& path) const;
  std::vector<std::string> preferred() const;
  bool hasPreferred() const;

  struct File {
    std::string path;
    std::uint64_t bytes = 0;
    uid_t owner = 0;
  };
  /// The preferred files that wait, in the order in which they were preferred.
  std::vector<File> waitingPreferred() const;
  /// Called with each file that waits, by folder and name; false ends it. The mutex is not held during the
  /// call.
  void visit(const std::function<bool(const File& file)>& visitor) const;

 private:
  using Folders = std::map<std::string, WaitingNames, std::less<>>;

  std::optional<WaitingName> find(std::string_view path) const;
  void count(const WaitingNames& names, int sign);
  Folders::iterator dropIfEmpty(Folders::iterator folder);

  mutable std::mutex mutex_;
  Folders folders_;  // each with a file that waits
  std::uint64_t files_ = 0;
  ByteSum bytes_;
  std::uint32_t scan_ = 0;
  struct Preference {
    std::int64_t order = 0;
    std::uint64_t wish = 0;  // the last wish for it
  };
  std::map<std::string, Preference> preferences_;  // by path
  std::int64_t lastOrder_ = 0;
  std::uint64_t lastWish_ = 0;
};

}  // namespace keldane
