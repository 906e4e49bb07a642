// Numbers of snapshots, and the recording of new ones: those of batches, those of gathered versions, and
// those that are read from a repository when the catalogue is made anew.
#include <set>
#include <utility>

#include "daemon/store/snapshots/Holders.h"
#include "daemon/store/snapshots/SnapshotNotes.h"
#include "daemon/store/sql/Schema.h"
#include "daemon/store/sql/Slices.h"

namespace keldane {

std::uint32_t Store::highestNumber() {
  const ScopedLock guard(readMutex_);
  return static_cast<std::uint32_t>(sql::numberOf(reader_, "SELECT number FROM counters"));
}

std::uint32_t Store::takeNumber() {
  const ScopedLock guard(mutex_);
  // A used number must not be given again even after a loss of power, so this one write is synchronous.
  database_.exec("PRAGMA synchronous=FULL");
  try {
    database_.exec("UPDATE counters SET number = number + 1");
  } catch (...) {
    database_.tryExec("PRAGMA synchronous=NORMAL");
    throw;
  }
  database_.exec("PRAGMA synchronous=NORMAL");
  return static_cast<std::uint32_t>(sql::numberOf(database_, "SELECT number FROM counters"));
}

void Store::raiseHighestNumber(std::uint32_t number) {
  const ScopedLock guard(mutex_);
  sql::runOnce(database_, "UPDATE counters SET number = ?1 WHERE number < ?1", number);
}

namespace {

// Called when a full snapshot becomes known whose number lies between others. The intervals that cover it are
// cut, because they say nothing about this snapshot.
void cutIntervals(SQLite::Database& database, std::int64_t number) {
  for (const char* text : {
           "INSERT OR IGNORE INTO spans SELECT id, version, first_full, ?1 - 1 FROM files"
           " WHERE first_full < ?1 AND last_full > ?1",
           "UPDATE files SET first_full = ?1 + 1 WHERE first_full <= ?1 AND last_full > ?1",
           "UPDATE files SET last_full = ?1 - 1 WHERE first_full < ?1 AND last_full = ?1",
           "UPDATE files SET first_full = NULL, last_full = NULL WHERE first_full = ?1 AND last_full = ?1",
           "INSERT OR IGNORE INTO spans SELECT file, version, first_full, ?1 - 1 FROM versions"
           " WHERE first_full < ?1 AND last_full > ?1",
           "UPDATE versions SET first_full = ?1 + 1 WHERE first_full <= ?1 AND last_full > ?1",
           "UPDATE versions SET last_full = ?1 - 1 WHERE first_full < ?1 AND last_full = ?1",
           "UPDATE versions SET first_full = NULL, last_full = NULL WHERE first_full = ?1 AND last_full = ?1",
           "INSERT OR IGNORE INTO spans SELECT file, version, ?1 + 1, last FROM spans"
           " WHERE first <= ?1 AND last > ?1",
           "DELETE FROM spans WHERE first = ?1",
           "UPDATE spans SET last = ?1 - 1 WHERE first < ?1 AND last >= ?1",
       }) {
    sql::runOnce(database, text, number);
  }
}

}  // namespace

// The row is written before the contents of the snapshot. So a crash between the two can leave a snapshot
// with incomplete contents, but never a version in no snapshot.
void Store::addSnapshotRow(const SnapshotRecord& snapshot) {
  const ScopedLock guard(mutex_);
  SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
  const std::uint32_t number = snapshot.number;
  const bool isNew = sql::runOnce(database_, "INSERT OR IGNORE INTO snapshots VALUES(?, ?, ?, ?, ?)", number,
                                  snapshot.id, snapshot.time, snapshot.full, snapshot.prefix) > 0;
  sql::runOnce(database_, "INSERT OR IGNORE INTO backups VALUES(?, ?)", number, snapshot.time);
  sql::runOnce(database_, "UPDATE counters SET number = ?1 WHERE number < ?1", number);
  if (snapshot.full && isNew) {
    if (sql::numberOf(database_, "SELECT ? BETWEEN first_full AND last_full FROM counters", number) != 0) {
      cutIntervals(database_, number);
    }
    sql::runOnce(database_,
                 "UPDATE counters SET first_full = MIN(COALESCE(first_full, ?1), ?1),"
                 " last_full = MAX(COALESCE(last_full, ?1), ?1)",
                 number);
  }
  transaction.commit();
  if (isNew) {
    snapshotsHaveChanged();
  }
}

void Store::addSnapshot(const SnapshotRecord& snapshot, const std::vector<StoredFile>& stored,
                        const PathsByFolder& confirmed) {
  addSnapshotRow(snapshot);
  PathsByFolder::Reader reader(confirmed);
  std::optional<SnapshotNotes> notes;
  inSlices(stored.size() + confirmed.size(),
           [&](SQLite::Database& database, std::size_t first, std::size_t last) {
             if (!notes) {
               notes.emplace(database, snapshot);
             }
             notes->begin();
             for (std::size_t index = first; index < last; ++index) {
               if (index < stored.size()) {
                 const StoredFile& file = stored[index];
                 notes->note(file.path, file.state, snapshot.number, snapshot.time, true);
                 notes->clearFailure(file.path);
               } else {
                 const std::string path = reader.next();
                 notes->confirm(path);
                 notes->clearFailure(path);
               }
             }
           });
}

void Store::addGathered(const SnapshotRecord& snapshot,
                        const std::vector<std::pair<std::string, std::uint32_t>>& versions) {
  addSnapshotRow(snapshot);
  std::optional<SnapshotNotes> notes;
  inSlices(versions.size(), [&](SQLite::Database& database, std::size_t first, std::size_t last) {
    if (!notes) {
      notes.emplace(database, snapshot);
    }
    notes->begin();
    for (std::size_t index = first; index < last; ++index) {
      notes->confirm(versions[index].first, versions[index].second);
    }
  });
}

void Store::addRebuilt(const SnapshotRecord& snapshot, const std::vector<RebuiltVersion>& versions) {
  addSnapshotRow(snapshot);
  std::optional<SnapshotNotes> notes;
  std::set<std::uint32_t> numbers = {snapshot.number};
  std::uint32_t highest = snapshot.number;
  inSlices(versions.size(), [&](SQLite::Database& database, std::size_t first, std::size_t last) {
    if (!notes) {
      notes.emplace(database, snapshot);
    }
    notes->begin();
    for (std::size_t index = first; index < last; ++index) {
      const RebuiltVersion& version = versions[index];
      notes->note(version.path, version.state, version.version, version.date, false);
      if (numbers.insert(version.version).second) {
        sql::runOnce(database, "INSERT OR IGNORE INTO backups VALUES(?, ?)", version.version, version.date);
        highest = std::max(highest, version.version);
      }
    }
  });
  raiseHighestNumber(highest);
}

std::vector<SnapshotRecord> Store::snapshots() {
  const ScopedLock guard(readMutex_);
  std::vector<SnapshotRecord> snapshots;
  for (const auto& [number, snapshot] : snapshotTable()->byNumber) {
    snapshots.push_back(snapshot);
  }
  return snapshots;
}

void Store::setSnapshotIds(const std::map<std::uint32_t, std::string>& ids) {
  const ScopedLock guard(mutex_);
  SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
  SQLite::Statement statement(database_, "UPDATE snapshots SET id = ?2 WHERE number = ?1");
  for (const auto& [number, id] : ids) {
    sql::run(statement, number, id);
  }
  transaction.commit();
  snapshotsHaveChanged();
}

void Store::clearCatalogue() {
  const ScopedLock removal(removalMutex_);
  const ScopedLock guard(mutex_);
  schema::clearCatalogue(database_);
  snapshotsHaveChanged();
}

}  // namespace keldane
