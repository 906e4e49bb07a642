// Reads the messages that the storage program prints while it works, line by line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// Reads the output of `backup --json -v -v`, line by line, and calls the observer. An object serves one call
/// of the engine. Used on one thread.
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
  bool takePlainFile(std::string_view line);
  void tellUnreadable(const std::string& path, const std::string& reason);

  const StoreObserver& observer_;
  std::string snapshot_;
  std::uint64_t bytesAdded_ = 0;
  bool someUnreadable_ = false;
};

/// Reads the standard error of `check`: the packs that it reports as damaged.
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
  /// Whether only owner, mode, times or attributes differ. Otherwise the content does.
  bool onlyMetadata = false;
};
std::optional<ItemProblem> problemFromLine(std::string_view line);

/// The message of a fatal error, which version 0.17 and newer report as JSON. Any other line stays as it is.
std::string fatalText(std::string_view line);

/// The beginning of the id of a snapshot that a line says cannot be read: "…load <snapshot/24676bc3a1>:
/// invalid data…", "…LoadRaw(<snapshot/24676bc3a1>): invalid data…". Empty for any other line, and for one
/// that says that the snapshot will be read again.
std::string unreadableSnapshot(std::string_view line);
/// The id in "… which belongs to snapshot ID", told after a list of names that cannot be read. Empty for any
/// other line.
std::string snapshotWithoutTree(std::string_view line);

}  // namespace keldane
