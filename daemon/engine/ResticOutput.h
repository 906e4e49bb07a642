// Reads what the storage program prints.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// Nanoseconds since the UNIX epoch of "2026-11-22T20:50:47.249573122Z" or the like with "+01:00"; absent
/// when it is no such time. What does not fit is the first or last that does.
std::optional<std::int64_t> timeFromText(std::string_view text);

/// One line of `ls --json`; absent for any other line, as that about the snapshot.
std::optional<StoredEntry> entryFromLine(std::string_view line);
/// All of `snapshots --json`, oldest first; absent when it is no such thing.
std::optional<std::vector<Snapshot>> snapshotsFromText(std::string_view text);
/// All of `find --json`, in its order. Absent when it is no such thing.
std::optional<std::vector<FoundEntry>> matchesFromText(std::string_view text);
/// All of `find --pack --json`, each file of each snapshot once.
std::optional<std::vector<FoundEntry>> packUsersFromText(std::string_view text);
/// "id" of `cat config`; empty when it is no such thing.
std::string idFromConfig(std::string_view text);
/// "total_size" of `stats --mode raw-data --json`.
std::optional<std::uint64_t> sizeFromStats(std::string_view text);

/// Reads what `backup --json -v -v` prints, line by line, and tells the observer. Fields are read, never kept
/// beyond the call that makes it; one thread.
class BackupReader {
 public:
  explicit BackupReader(const StoreObserver& observer) : observer_(observer) {}
  void outputLine(std::string_view line);
  /// Whether the line is about one file.
  bool errorLine(std::string_view line);

  const std::string& snapshot() const { return snapshot_; }
  std::uint64_t bytesAdded() const { return bytesAdded_; }
  bool someUnreadable() const { return someUnreadable_; }

 private:
  void tellUnreadable(const std::string& path, const std::string& reason);

  const StoreObserver& observer_;
  std::string snapshot_;
  std::uint64_t bytesAdded_ = 0;
  bool someUnreadable_ = false;
};

/// What `check` says on standard error: the packs that it calls damaged.
class CheckReader {
 public:
  void errorLine(std::string_view line);
  const std::vector<std::string>& packs() const { return packs_; }

 private:
  void add(std::string_view pack);
  std::vector<std::string> packs_;
};

/// A line of `restore` about one item: "ignoring error for PATH: REASON".
struct ItemProblem {
  std::string path;
  std::string reason;
  /// Only owner, mode, times or attributes are not as they were; else the content.
  bool onlyMetadata = false;
};
std::optional<ItemProblem> problemFromLine(std::string_view line);

}  // namespace keldane
