// Removal from the catalogue: snapshots that are forgotten, with the versions that only they held; files that
// were deleted on the disk; and versions that are damaged.
#include <utility>

#include "daemon/store/sql/Slices.h"

namespace keldane {

namespace {

struct Version {
  std::int64_t file = 0;
  std::int64_t version = 0;
};

/// Removes the versions that no snapshot holds.
class UnheldVersions {
 public:
  explicit UnheldVersions(SQLite::Database& database)
      : held_(database, "SELECT 1 FROM held WHERE file = ? AND version = ? LIMIT 1"),
        spanned_(database,
                 "SELECT 1 FROM spans WHERE file = ? AND version = ? AND EXISTS(SELECT 1 FROM snapshots"
                 " WHERE full AND number BETWEEN first AND last) LIMIT 1"),
        inFull_(database,
                "SELECT 1 FROM snapshots WHERE full AND number BETWEEN"
                " (SELECT first_full FROM files WHERE id = ?1 AND version = ?2 UNION ALL"
                "  SELECT first_full FROM versions WHERE file = ?1 AND version = ?2) AND"
                " (SELECT last_full FROM files WHERE id = ?1 AND version = ?2 UNION ALL"
                "  SELECT last_full FROM versions WHERE file = ?1 AND version = ?2) LIMIT 1"),
        dropSpans_(database, "DELETE FROM spans WHERE file = ? AND version = ?"),
        dropOlder_(database, "DELETE FROM versions WHERE file = ? AND version = ?"),
        isNewest_(database, "SELECT 1 FROM files WHERE id = ? AND version = ?"),
        promote_(database,
                 "UPDATE files SET (version, size, modified, changed, date, damaged, first_full, last_full) ="
                 " (SELECT version, size, modified, changed, date, damaged, first_full, last_full"
                 " FROM versions WHERE file = ?1 ORDER BY version DESC LIMIT 1)"
                 " WHERE id = ?1 AND EXISTS(SELECT 1 FROM versions WHERE file = ?1)"),
        dropPromoted_(database,
                      "DELETE FROM versions WHERE file = ?1 AND version ="
                      " (SELECT version FROM files WHERE id = ?1)"),
        dropFile_(database, "DELETE FROM files WHERE id = ?") {}

  /// Removes the version if no known snapshot holds it.
  void check(const Version& version) {
    if (answers(held_, version) || answers(inFull_, version) || answers(spanned_, version)) {
      return;
    }
    sql::run(dropSpans_, version.file, version.version);
    if (!answers(isNewest_, version)) {
      sql::run(dropOlder_, version.file, version.version);
    } else if (sql::run(promote_, version.file) > 0) {
      sql::run(dropPromoted_, version.file);
    } else {
      sql::run(dropFile_, version.file);
    }
  }

 private:
  static bool answers(sql::KeptStatement& statement, const Version& version) {
    const sql::Rewinding rewinding(statement.get());
    return sql::bindAll(statement.get(), version.file, version.version).executeStep();
  }

  sql::KeptStatement held_, spanned_, inFull_;
  sql::KeptStatement dropSpans_, dropOlder_, isNewest_, promote_, dropPromoted_, dropFile_;
};

Version versionAt(SQLite::Statement& row) {
  return {row.getColumn(0).getInt64(), row.getColumn(1).getInt64()};
}

}  // namespace

void Store::removeSnapshots(const std::vector<std::uint32_t>& numbers) {
  {
    const ScopedLock guard(mutex_);
    SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
    SQLite::Statement note(
        database_, "INSERT OR IGNORE INTO leaving SELECT number, full FROM snapshots WHERE number = ?");
    SQLite::Statement drop(database_, "DELETE FROM snapshots WHERE number = ?");
    for (const std::uint32_t number : numbers) {
      sql::run(note, number);
      sql::run(drop, number);
    }
    transaction.commit();
  }
  snapshotsHaveChanged();
  finishRemoval();
}

// Snapshots are first recorded as leaving. After a crash the next start goes on here, so no version remains
// that no snapshot holds.
void Store::finishRemoval() {
  const ScopedLock removal(removalMutex_);
  std::vector<std::uint32_t> leaving;
  bool someFull = false;
  {
    const ScopedLock guard(readMutex_);
    for (SQLite::Statement row(reader_, "SELECT number, full FROM leaving"); row.executeStep();) {
      leaving.push_back(row.getColumn(0).getUInt());
      someFull = someFull || row.getColumn(1).getInt() != 0;
    }
  }
  if (!leaving.empty()) {
    removeHeld();
  }
  if (someFull) {
    removeUnheld();
  }
  if (!leaving.empty()) {
    const ScopedLock guard(mutex_);
    SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
    SQLite::Statement drop(database_, "DELETE FROM leaving WHERE number = ?");
    for (const std::uint32_t number : leaving) {
      sql::run(drop, number);
    }
    transaction.commit();
  }
}

// Removes the records of what the leaving snapshots hold.
void Store::removeHeld() {
  std::optional<UnheldVersions> unheld;
  untilDone([&](SQLite::Database& database) {
    if (!unheld) {
      unheld.emplace(database);
    }
    SQLite::Statement query(database,
                            "SELECT file, version, snapshot FROM leaving CROSS JOIN held"
                            " ON snapshot = number LIMIT ?");
    SQLite::Statement drop(database, "DELETE FROM held WHERE file = ? AND version = ? AND snapshot = ?");
    std::vector<std::pair<Version, std::uint32_t>> slice;
    for (sql::bindAll(query, std::uint64_t{sql::kSlice}); query.executeStep();) {
      slice.push_back({versionAt(query), query.getColumn(2).getUInt()});
    }
    for (const auto& [version, snapshot] : slice) {
      sql::run(drop, version.file, version.version, snapshot);
      unheld->check(version);
    }
    return slice.size() < sql::kSlice;
  });
}

// Every version whose interval has lost its last full snapshot is looked at. They are searched on a
// connection of its own, so nobody has to wait for the search.
void Store::removeUnheld() {
  std::vector<Version> candidates;
  {
    sql::LongQuestion question(path_);
    SQLite::Statement query(
        question.database(),
        "SELECT id, version FROM files WHERE first_full IS NOT NULL AND NOT EXISTS(SELECT 1 FROM"
        " snapshots WHERE full AND number BETWEEN first_full AND last_full) UNION ALL "
        "SELECT file, version FROM versions WHERE first_full IS NOT NULL AND NOT EXISTS(SELECT 1 FROM"
        " snapshots WHERE full AND number BETWEEN first_full AND last_full) UNION ALL "
        "SELECT file, version FROM spans WHERE NOT EXISTS(SELECT 1 FROM"
        " snapshots WHERE full AND number BETWEEN first AND last)");
    while (query.executeStep()) {
      candidates.push_back(versionAt(query));
    }
  }
  std::optional<UnheldVersions> unheld;
  inSlices(candidates.size(), [&](SQLite::Database& database, std::size_t first, std::size_t last) {
    if (!unheld) {
      unheld.emplace(database);
    }
    for (std::size_t index = first; index < last; ++index) {
      unheld->check(candidates[index]);
    }
  });
  const ScopedLock guard(mutex_);
  database_.exec(
      "DELETE FROM spans WHERE NOT EXISTS(SELECT 1 FROM snapshots WHERE full AND number BETWEEN first AND "
      "last)");
}

void Store::setRemoved(const std::string& path, bool removed, double date) {
  if (!removed) {
    const ScopedLock guard(mutex_);
    sql::runOnce(database_, "UPDATE files SET removed = NULL WHERE path = ? AND removed IS NOT NULL", path);
    return;
  }
  const sql::Below below(path);
  std::string from;
  untilDone([&](SQLite::Database& database) {
    if (from.empty()) {
      sql::runOnce(database, "UPDATE files SET removed = ?2 WHERE path = ?1 AND removed IS NULL", path, date);
      if (sql::numberOf(database, "SELECT failures FROM counters") > 0) {
        sql::runOnce(database, "DELETE FROM failures WHERE path = ?1 OR (path >= ?2 AND path < ?3)", path,
                     below.from, below.to);
      }
      from = below.from;
    }
    SQLite::Statement query(
        database, "SELECT path FROM files WHERE path >= ? AND path < ? ORDER BY path LIMIT 1 OFFSET ?");
    sql::bindAll(query, from, below.to, std::uint64_t{sql::kSlice});
    const bool isLast = !query.executeStep();
    const std::string to = isLast ? below.to : query.getColumn(0).getString();
    query.tryReset();
    sql::runOnce(database, "UPDATE files SET removed = ?3 WHERE path >= ?1 AND path < ?2 AND removed IS NULL",
                 from, to, date);
    from = to;
    return isLast;
  });
}

void Store::setDamaged(const std::string& path, const std::string& snapshot) {
  constexpr std::size_t kShortestId = 8;
  const ScopedLock guard(mutex_);
  SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
  const std::int64_t file = sql::numberOf(database_, "SELECT id FROM files WHERE path = ?", path);
  const std::int64_t number =
      snapshot.size() < kShortestId
          ? 0
          : sql::numberOf(database_,
                          "SELECT number FROM snapshots WHERE substr(id, 1, length(?1)) = ?1"
                          " OR (length(id) >= 8 AND substr(?1, 1, length(id)) = id)",
                          snapshot);
  constexpr char kHeld[] =
      " AND (EXISTS(SELECT 1 FROM held h WHERE h.snapshot = ?2 AND h.file = ?1 AND h.version = x.version)"
      " OR (EXISTS(SELECT 1 FROM snapshots WHERE number = ?2 AND full) AND (?2 BETWEEN first_full AND "
      "last_full"
      " OR EXISTS(SELECT 1 FROM spans s WHERE s.file = ?1 AND s.version = x.version"
      " AND ?2 BETWEEN s.first AND s.last))))";
  for (const char* text : {"UPDATE files AS x SET damaged = 1 WHERE id = ?1",
                           "UPDATE versions AS x SET damaged = 1 WHERE file = ?1"}) {
    sql::runOnce(database_, (std::string(text) + kHeld).c_str(), file, number);
  }
  transaction.commit();
}

}  // namespace keldane
