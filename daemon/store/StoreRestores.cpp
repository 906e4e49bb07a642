// The jobs of restoring, which survive the end of the daemon.
#include "daemon/store/Store.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

namespace {

void bindBytes(SQLite::Statement& statement, int index, const std::string& bytes) {
  statement.bind(index, static_cast<const void*>(bytes.data()), static_cast<int>(bytes.size()));
}

}  // namespace

std::uint32_t Store::addRestore(const RestoreRecord& job) {
  const ScopedLock guard(mutex_);
  SQLite::Statement statement(database_,
                              "INSERT INTO restores(request, status, report, user) VALUES(?, ?, ?, ?)");
  bindBytes(statement, 1, job.request);
  statement.bind(2, job.status);
  bindBytes(statement, 3, job.report);
  statement.bind(4, job.user);
  statement.exec();
  return static_cast<std::uint32_t>(database_.getLastInsertRowid());
}

void Store::setRestore(const RestoreRecord& job) {
  const ScopedLock guard(mutex_);
  SQLite::Statement statement(
      database_, "UPDATE restores SET request = ?, status = ?, report = ?, user = ? WHERE number = ?");
  bindBytes(statement, 1, job.request);
  statement.bind(2, job.status);
  bindBytes(statement, 3, job.report);
  statement.bind(4, job.user);
  statement.bind(5, job.number);
  statement.exec();
}

std::vector<Store::RestoreRecord> Store::restores() {
  const ScopedLock guard(readMutex_);
  std::vector<RestoreRecord> jobs;
  SQLite::Statement row(reader_,
                        "SELECT number, request, status, report, user FROM restores ORDER BY number");
  while (row.executeStep()) {
    jobs.push_back({row.getColumn(0).getUInt(), row.getColumn(1).getString(), row.getColumn(2).getUInt(),
                    row.getColumn(3).getString(), row.getColumn(4).getUInt()});
  }
  return jobs;
}

void Store::removeRestore(std::uint32_t number) {
  const ScopedLock guard(mutex_);
  sql::runOnce(database_, "DELETE FROM restores WHERE number = ?", number);
}

}  // namespace keldane
