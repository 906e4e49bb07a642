#include "daemon/store/Store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

constexpr int kBusyMilliseconds = 5000;

constexpr char kSchema[] =
    "CREATE TABLE IF NOT EXISTS rules(path TEXT PRIMARY KEY, included INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS types(type TEXT PRIMARY KEY, toggle INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS priorities(path TEXT UNIQUE NOT NULL, sequence INTEGER PRIMARY KEY "
    "AUTOINCREMENT);"
    "CREATE TABLE IF NOT EXISTS settings(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS profile(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS records(path TEXT PRIMARY KEY, folder TEXT NOT NULL, size INTEGER NOT NULL,"
    " modified INTEGER NOT NULL, date REAL NOT NULL, digest TEXT NOT NULL, version INTEGER NOT NULL) WITHOUT "
    "ROWID;"
    "CREATE INDEX IF NOT EXISTS records_by_folder ON records(folder);";

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

BackupRecord recordFrom(SQLite::Statement& row, int first) {
  return {static_cast<std::uint64_t>(row.getColumn(first).getInt64()), row.getColumn(first + 1).getInt64(),
          row.getColumn(first + 2).getDouble(), row.getColumn(first + 3).getString(),
          row.getColumn(first + 4).getUInt()};
}

/// Ends a query that is kept for the next time, without which it would hold the state that it reads.
class Rewinding {
 public:
  explicit Rewinding(SQLite::Statement& statement) : statement_(statement) {}
  ~Rewinding() { statement_.tryReset(); }
  Rewinding(const Rewinding&) = delete;
  Rewinding& operator=(const Rewinding&) = delete;

 private:
  SQLite::Statement& statement_;
};

// Made by us before SQLite opens it: the names of a user's files are nobody else's affair. Answers its path
// without symbolic links, which SQLite is told not to follow.
std::string privateFile(const std::string& file) {
  std::error_code error;
  const fs::path folder = fs::canonical(fs::path(file).parent_path(), error);
  const std::string path = (folder / fs::path(file).filename()).string();
  const Descriptor made(
      error ? -1 : open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  struct stat status {};
  if (!made || fstat(made.get(), &status) != 0) {
    const int reason = error ? error.value() : errno;
    throw SQLite::Exception(std::generic_category().message(reason), SQLITE_CANTOPEN);
  }
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink != 1) {
    throw SQLite::Exception("it is no file of this user alone", SQLITE_PERM);
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    fchmod(made.get(), 0600);
  }
  return path;
}

void bindAt(SQLite::Statement& statement, int index, std::uint64_t value) {
  statement.bind(index, static_cast<std::int64_t>(value));
}
template <class Value>
void bindAt(SQLite::Statement& statement, int index, const Value& value) {
  statement.bind(index, value);
}

}  // namespace

Store::Store(const std::string& file)
    : database_(privateFile(file), SQLite::OPEN_READWRITE | SQLite::OPEN_NOFOLLOW, kBusyMilliseconds) {
  database_.exec("PRAGMA journal_mode=WAL");
  database_.exec("PRAGMA synchronous=NORMAL");
  database_.exec(kSchema);
}

template <class... Values>
void Store::execute(const char* sql, const Values&... values) {
  const ScopedLock guard(mutex_);
  SQLite::Statement statement(database_, sql);
  int index = 0;
  (bindAt(statement, ++index, values), ...);
  statement.exec();
}

std::map<std::string, bool> Store::rules() {
  const ScopedLock guard(mutex_);
  std::map<std::string, bool> rules;
  for (SQLite::Statement row(database_, "SELECT path, included FROM rules"); row.executeStep();) {
    rules[row.getColumn(0).getString()] = row.getColumn(1).getInt() != 0;
  }
  return rules;
}

void Store::setRule(const std::string& path, bool included) {
  execute("INSERT OR REPLACE INTO rules VALUES(?, ?)", path, included ? 1 : 0);
}

void Store::removeRule(const std::string& path) { execute("DELETE FROM rules WHERE path = ?", path); }

std::map<std::string, std::uint32_t> Store::types() {
  const ScopedLock guard(mutex_);
  std::map<std::string, std::uint32_t> types;
  for (SQLite::Statement row(database_, "SELECT type, toggle FROM types"); row.executeStep();) {
    types[row.getColumn(0).getString()] = row.getColumn(1).getUInt();
  }
  return types;
}

void Store::setType(const std::string& type, std::uint32_t toggle) {
  execute("INSERT OR REPLACE INTO types VALUES(?, ?)", type, std::int64_t{toggle});
}

std::map<std::string, std::int64_t> Store::priorities() {
  const ScopedLock guard(mutex_);
  std::map<std::string, std::int64_t> priorities;
  for (SQLite::Statement row(database_, "SELECT path, sequence FROM priorities"); row.executeStep();) {
    priorities[row.getColumn(0).getString()] = row.getColumn(1).getInt64();
  }
  return priorities;
}

void Store::addPriority(const std::string& path) {
  execute("INSERT OR IGNORE INTO priorities(path) VALUES(?)", path);
}

void Store::removePriority(const std::string& path) {
  execute("DELETE FROM priorities WHERE path = ?", path);
}

std::optional<std::string> Store::value(Table table, const std::string& key) {
  const ScopedLock guard(mutex_);
  SQLite::Statement row(database_, table == Table::settings ? "SELECT value FROM settings WHERE key = ?"
                                                            : "SELECT value FROM profile WHERE key = ?");
  row.bind(1, key);
  return row.executeStep() ? std::optional(row.getColumn(0).getString()) : std::nullopt;
}

void Store::setValue(Table table, const std::string& key, const std::string& value) {
  execute(table == Table::settings ? "INSERT OR REPLACE INTO settings VALUES(?, ?)"
                                   : "INSERT OR REPLACE INTO profile VALUES(?, ?)",
          key, value);
}

std::optional<BackupRecord> Store::record(const std::string& path) {
  const ScopedLock guard(mutex_);
  if (!recordQuery_) {
    recordQuery_.emplace(database_,
                         "SELECT size, modified, date, digest, version FROM records WHERE path = ?");
  }
  SQLite::Statement& row = *recordQuery_;
  const Rewinding rewinding(row);
  row.bind(1, path);
  return row.executeStep() ? std::optional(recordFrom(row, 0)) : std::nullopt;
}

std::map<std::string, BackupRecord> Store::recordsIn(const std::string& folder) {
  const ScopedLock guard(mutex_);
  std::map<std::string, BackupRecord> records;
  SQLite::Statement row(database_,
                        "SELECT path, size, modified, date, digest, version FROM records WHERE folder = ?");
  row.bind(1, folder == "/" ? std::string() : folder);
  while (row.executeStep()) {
    records.emplace(row.getColumn(0).getString(), recordFrom(row, 1));
  }
  return records;
}

void Store::setRecord(const std::string& path, const BackupRecord& record) {
  execute(
      "INSERT INTO records VALUES(?, ?, ?, ?, ?, ?, 1) ON CONFLICT(path) DO UPDATE SET size = excluded.size,"
      " modified = excluded.modified, date = excluded.date, digest = excluded.digest, version = version + 1",
      path, folderOf(path), record.size, record.modified, record.date, record.digest);
}

Store::Totals Store::totals() {
  const ScopedLock guard(mutex_);
  SQLite::Statement row(database_, "SELECT COUNT(*), COALESCE(SUM(size), 0) FROM records");
  row.executeStep();
  return {static_cast<std::uint64_t>(row.getColumn(0).getInt64()),
          static_cast<std::uint64_t>(row.getColumn(1).getInt64())};
}

}  // namespace keldane
