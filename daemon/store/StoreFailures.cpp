// The files that could not be stored, and the reasons.
#include "daemon/store/Store.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

void Store::setFailure(const std::string& path, const std::string& reason, double date) {
  const ScopedLock guard(mutex_);
  sql::runOnce(
      database_,
      "INSERT INTO failures VALUES(?, ?, ?) ON CONFLICT(path) DO UPDATE SET reason = excluded.reason", path,
      reason, date);
}

void Store::clearFailure(const std::string& path) {
  const ScopedLock guard(mutex_);
  sql::runOnce(database_, "DELETE FROM failures WHERE path = ?", path);
}

std::optional<std::string> Store::failure(const std::string& path) {
  const ScopedLock guard(readMutex_);
  SQLite::Statement row(reader_, "SELECT reason FROM failures WHERE path = ?");
  row.bind(1, path);
  return row.executeStep() ? std::optional(row.getColumn(0).getString()) : std::nullopt;
}

std::vector<FailureRecord> Store::failures(std::size_t most) {
  const ScopedLock guard(readMutex_);
  std::vector<FailureRecord> failures;
  SQLite::Statement row(reader_, "SELECT path, reason, since FROM failures ORDER BY path LIMIT ?");
  sql::bindAll(row, std::uint64_t{most});
  while (row.executeStep()) {
    failures.push_back(
        {row.getColumn(0).getString(), row.getColumn(1).getString(), row.getColumn(2).getDouble()});
  }
  return failures;
}

std::uint64_t Store::failureCount() {
  const ScopedLock guard(readMutex_);
  return static_cast<std::uint64_t>(sql::numberOf(reader_, "SELECT failures FROM counters"));
}

bool Store::hasFailureBelow(const std::string& folder) {
  const sql::Below below(folder);
  const ScopedLock guard(readMutex_);
  return sql::numberOf(reader_,
                       "SELECT EXISTS(SELECT 1 FROM failures WHERE path = ?1 OR (path >= ?2 AND path < ?3))",
                       folder, below.from, below.to) != 0;
}

std::map<std::string, std::string> Store::failuresBelow(const std::string& path) {
  const sql::Below below(path);
  const ScopedLock guard(readMutex_);
  std::map<std::string, std::string> failures;
  SQLite::Statement row(reader_,
                        "SELECT path, reason FROM failures WHERE path = ?1 OR (path >= ?2 AND path < ?3)");
  sql::bindAll(row, path, below.from, below.to);
  while (row.executeStep()) {
    failures.emplace(row.getColumn(0).getString(), row.getColumn(1).getString());
  }
  return failures;
}

void Store::clearFailuresBelow(const std::string& path) {
  const sql::Below below(path);
  const ScopedLock guard(mutex_);
  sql::runOnce(database_, "DELETE FROM failures WHERE path = ?1 OR (path >= ?2 AND path < ?3)", path,
               below.from, below.to);
}

}  // namespace keldane
