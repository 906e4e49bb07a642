#include "daemon/store/snapshots/SnapshotNotes.h"

namespace keldane {

SnapshotNotes::SnapshotNotes(SQLite::Database& database, const SnapshotRecord& snapshot)
    : snapshot_(snapshot),
      full_(snapshot.full ? std::optional<std::int64_t>(snapshot.number) : std::nullopt),
      state_(database,
             "SELECT failures, (SELECT MAX(id) FROM files),"
             " (SELECT MAX(number) FROM snapshots WHERE full AND number < ?) FROM counters"),
      newest_(database, "SELECT id, version, first_full, last_full FROM files WHERE path = ?"),
      older_(database,
             "SELECT file, version, first_full, last_full FROM versions WHERE file = ? AND version = ?"),
      newestUpTo_(database,
                  "SELECT file, version, first_full, last_full FROM versions WHERE file = ? AND version <= ?"
                  " ORDER BY version DESC LIMIT 1"),
      insert_(database,
              "INSERT INTO files(path, id, version, size, modified, changed, date, damaged, first_full,"
              " last_full) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, 0, ?8, ?8)"),
      keepOlder_(
          database,
          "INSERT INTO versions SELECT id, version, size, modified, changed, date, damaged, first_full,"
          " last_full FROM files WHERE path = ?"),
      replace_(
          database,
          "UPDATE files SET version = ?2, size = ?3, modified = ?4, changed = ?5, date = ?6, damaged = 0,"
          " first_full = ?7, last_full = ?7 WHERE path = ?1"),
      insertOlder_(database, "INSERT OR IGNORE INTO versions VALUES(?1, ?2, ?3, ?4, ?5, ?6, 0, NULL, NULL)"),
      hold_(database, "INSERT OR IGNORE INTO held VALUES(?, ?, ?)"),
      extendAtEnd_(database,
                   "UPDATE files SET first_full = COALESCE(first_full, ?2), last_full = ?2 WHERE path = ?1"
                   " AND version <= ?2 AND removed IS NULL"
                   " AND (last_full IS NULL OR (last_full >= ?3 AND last_full <= ?2))"),
      fullBetween_(database, "SELECT 1 FROM snapshots WHERE full AND number > ? AND number < ? LIMIT 1"),
      inSpan_(database,
              "SELECT 1 FROM spans WHERE file = ?1 AND version = ?2 AND first <= ?3 AND last >= ?3 LIMIT 1"),
      addSpan_(database, "INSERT OR IGNORE INTO spans VALUES(?, ?, ?, ?)"),
      setNewest_(database, "UPDATE files SET first_full = ?3, last_full = ?4 WHERE id = ?1 AND version = ?2"),
      setOlder_(database,
                "UPDATE versions SET first_full = ?3, last_full = ?4 WHERE file = ?1 AND version = ?2"),
      isThere_(database, "UPDATE files SET removed = NULL WHERE path = ? AND removed < ?"),
      clearFailure_(database, "DELETE FROM failures WHERE path = ?") {}

void SnapshotNotes::begin() {
  SQLite::Statement& row = state_.get();
  const sql::Rewinding rewinding(row);
  sql::bindAll(row, snapshot_.number).executeStep();
  hasFailures_ = row.getColumn(0).getInt64() > 0;
  nextFile_ = row.getColumn(1).getInt64() + 1;
  previousFull_ = row.getColumn(2).getInt64();
}

void SnapshotNotes::note(const std::string& path, const FileState& state, std::uint32_t version, double date,
                         bool isThere) {
  const std::optional<Row> row = newest(path);
  if (!row) {
    add(path, state, version, date);
    return;
  }
  if (isThere) {
    sql::run(isThere_, path, snapshot_.time);
  }
  if (version == row->version) {
    hold(*row, Place::files);
  } else if (version < row->version) {
    sql::run(insertOlder_, row->file, version, state.size, state.modified, state.statusChanged, date);
    if (const std::optional<Row> before = older(row->file, version)) {
      hold(*before, Place::versions);
    }
  } else {
    sql::run(keepOlder_, path);
    sql::run(replace_, path, version, state.size, state.modified, state.statusChanged, date, full_);
    if (!snapshot_.full) {
      sql::run(hold_, snapshot_.number, row->file, version);
    }
  }
}

void SnapshotNotes::confirm(const std::string& path) {
  if (snapshot_.full && sql::run(extendAtEnd_, path, snapshot_.number, previousFull_) > 0) {
    return;  // this is so for nearly all of them
  }
  const std::optional<Row> row = newest(path);
  if (!row) {
    return;
  }
  sql::run(isThere_, path, snapshot_.time);
  if (row->version <= snapshot_.number) {
    hold(*row, Place::files);
  } else if (const std::optional<Row> before = newestUpTo(row->file, snapshot_.number)) {
    hold(*before, Place::versions);
  }
}

void SnapshotNotes::confirm(const std::string& path, std::uint32_t version) {
  const std::optional<Row> row = newest(path);
  if (row && row->version == version) {
    hold(*row, Place::files);
  } else if (const std::optional<Row> before = row ? older(row->file, version) : std::nullopt) {
    hold(*before, Place::versions);
  }
}

void SnapshotNotes::clearFailure(const std::string& path) {
  if (hasFailures_) {
    sql::run(clearFailure_, path);
  }
}

namespace {

template <class RowType>
std::optional<RowType> rowOf(SQLite::Statement& statement) {
  if (!statement.executeStep()) {
    return std::nullopt;
  }
  return RowType{statement.getColumn(0).getInt64(), statement.getColumn(1).getInt64(),
                 sql::optionalAt(statement, 2), sql::optionalAt(statement, 3)};
}

}  // namespace

std::optional<SnapshotNotes::Row> SnapshotNotes::newest(const std::string& path) {
  const sql::Rewinding rewinding(newest_.get());
  return rowOf<Row>(sql::bindAll(newest_.get(), path));
}

std::optional<SnapshotNotes::Row> SnapshotNotes::older(std::int64_t file, std::uint32_t version) {
  const sql::Rewinding rewinding(older_.get());
  return rowOf<Row>(sql::bindAll(older_.get(), file, version));
}

std::optional<SnapshotNotes::Row> SnapshotNotes::newestUpTo(std::int64_t file, std::uint32_t version) {
  const sql::Rewinding rewinding(newestUpTo_.get());
  return rowOf<Row>(sql::bindAll(newestUpTo_.get(), file, version));
}

void SnapshotNotes::add(const std::string& path, const FileState& state, std::uint32_t version, double date) {
  sql::run(insert_, path, nextFile_, version, state.size, state.modified, state.statusChanged, date, full_);
  if (!snapshot_.full) {
    sql::run(hold_, snapshot_.number, nextFile_, version);
  }
  ++nextFile_;
}

void SnapshotNotes::hold(const Row& row, Place place) {
  if (snapshot_.full) {
    extend(row, place);
  } else {
    sql::run(hold_, snapshot_.number, row.file, row.version);
  }
}

// A version is in every existing full snapshot of its interval, so the interval may grow only over numbers of
// which no full snapshot is known. When one lies between, the later interval stays with the version, and the
// earlier one becomes a span.
void SnapshotNotes::extend(const Row& row, Place place) {
  const std::int64_t number = snapshot_.number;
  if (!row.firstFull || !row.lastFull) {
    setInterval(row, place, number, number);
  } else if (number > *row.lastFull) {
    if (fullBetween(*row.lastFull, number)) {
      sql::run(addSpan_, row.file, row.version, *row.firstFull, *row.lastFull);
      setInterval(row, place, number, number);
    } else {
      setInterval(row, place, *row.firstFull, number);
    }
  } else if (number < *row.firstFull && !isInSpan(row)) {
    if (fullBetween(number, *row.firstFull)) {
      sql::run(addSpan_, row.file, row.version, number, number);
    } else {
      setInterval(row, place, number, *row.lastFull);
    }
  }
}

bool SnapshotNotes::fullBetween(std::int64_t first, std::int64_t last) {
  const sql::Rewinding rewinding(fullBetween_.get());
  return sql::bindAll(fullBetween_.get(), first, last).executeStep();
}

bool SnapshotNotes::isInSpan(const Row& row) {
  const sql::Rewinding rewinding(inSpan_.get());
  return sql::bindAll(inSpan_.get(), row.file, row.version, snapshot_.number).executeStep();
}

void SnapshotNotes::setInterval(const Row& row, Place place, std::int64_t first, std::int64_t last) {
  sql::run(place == Place::files ? setNewest_ : setOlder_, row.file, row.version, first, last);
}

}  // namespace keldane
