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
/// when the text is no such time. A time beyond the range becomes the first or the last one.
std::optional<std::int64_t> timeFromText(std::string_view text);

/// The entry in one line of `ls --json`; absent for any other line, such as the one about the snapshot.
std::optional<StoredEntry> entryFromLine(std::string_view line);
/// The snapshots in the output of `snapshots --json`, oldest first; absent when the text is no such output.
std::optional<std::vector<Snapshot>> snapshotsFromText(std::string_view text);
/// The matches in the output of `find --json`, in its order; absent when the text is no such output.
std::optional<std::vector<FoundEntry>> matchesFromText(std::string_view text);
/// The files in the output of `find --pack --json`, each file of each snapshot once.
std::optional<std::vector<FoundEntry>> packUsersFromText(std::string_view text);
/// The parts that packs hold, by their ids: contents of files, and lists of the names in folders.
struct PackBlobs {
  std::vector<std::string> data;
  std::vector<std::string> trees;
};
/// Adds the parts that these packs hold according to the output of `cat index`.
void addBlobs(std::string_view text, const std::vector<std::string>& packs, PackBlobs& blobs);
/// Each snapshot in the output of `snapshots --json`, with its topmost list of names.
using SnapshotTrees = std::vector<std::pair<std::string, std::string>>;
SnapshotTrees topTreesFromText(std::string_view text);
/// The value of "id" in the output of `cat config`; empty when there is none.
std::string idFromConfig(std::string_view text);
/// The keys in the output of `key list --json`; absent when it is no such list.
std::optional<std::vector<KeyRecord>> keysFromText(std::string_view text);
/// The value of "total_size" in the output of `stats --mode raw-data --json`.
std::optional<std::uint64_t> sizeFromStats(std::string_view text);

}  // namespace keldane
