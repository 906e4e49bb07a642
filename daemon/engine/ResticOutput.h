// Reads the lists that the storage program prints.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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
/// What packs hold, by the ids of the parts: contents of files, and lists of the names in folders.
struct PackBlobs {
  std::vector<std::string> data;
  std::vector<std::string> trees;
};
/// Adds what `cat index` says that these packs hold.
void addBlobs(std::string_view text, const std::vector<std::string>& packs, PackBlobs& blobs);
/// Of `snapshots --json`: each snapshot and its topmost list of names.
using SnapshotTrees = std::vector<std::pair<std::string, std::string>>;
SnapshotTrees topTreesFromText(std::string_view text);
/// "id" of `cat config`; empty when it is no such thing.
std::string idFromConfig(std::string_view text);
/// All of `key list --json`; absent when it is no such thing.
std::optional<std::vector<KeyRecord>> keysFromText(std::string_view text);
/// "total_size" of `stats --mode raw-data --json`.
std::optional<std::uint64_t> sizeFromStats(std::string_view text);

}  // namespace keldane
