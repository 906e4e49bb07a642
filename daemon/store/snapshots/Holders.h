// Finds the snapshots that hold a version of a file.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "daemon/store/Store.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

/// The interval of full snapshots that hold a version; absent when none does.
struct FullInterval {
  std::optional<std::int64_t> first, last;
};

/// All known snapshots, read at one time. There are a few hundred of them.
struct SnapshotTable {
  explicit SnapshotTable(SQLite::Database& database);

  std::map<std::uint32_t, SnapshotRecord> byNumber;
  std::vector<std::uint32_t> fulls;  ///< the numbers of the full ones, growing
};

/// Finds the snapshots of a table that hold a version. Used on one thread; the caller holds the mutex that
/// guards the connection.
class Holders {
 public:
  Holders(SQLite::Database& database, std::shared_ptr<const SnapshotTable> snapshots);

  const std::map<std::uint32_t, SnapshotRecord>& snapshots() const { return snapshots_->byNumber; }

  /// The numbers of all snapshots that hold it; partial ones first.
  std::vector<std::uint32_t> all(std::int64_t file, std::int64_t version, const FullInterval& interval);
  /// The snapshot to fetch the version from; null when none is left. A restore runs the storage program once
  /// for each snapshot, so the one that holds most is chosen: the last full one up to `upTo`, else the last
  /// full one, else the last partial one.
  const SnapshotRecord* best(std::int64_t file, std::int64_t version, const FullInterval& interval,
                             std::uint32_t upTo);

 private:
  const SnapshotRecord* lastFull(std::int64_t first, std::int64_t last) const;

  const std::shared_ptr<const SnapshotTable> snapshots_;
  sql::KeptStatement held_, spans_;
};

}  // namespace keldane
