#include "daemon/store/sql/Schema.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/files/Descriptor.h"

namespace keldane::schema {

namespace {

namespace fs = std::filesystem;

constexpr int kFormat = 3;

constexpr char kPersonal[] = R"(
CREATE TABLE IF NOT EXISTS rules(path TEXT PRIMARY KEY, included INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS types(type TEXT PRIMARY KEY, toggle INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS priorities(path TEXT UNIQUE NOT NULL, sequence INTEGER PRIMARY KEY AUTOINCREMENT);
CREATE TABLE IF NOT EXISTS settings(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS profile(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS restores(number INTEGER PRIMARY KEY AUTOINCREMENT, request BLOB NOT NULL,
  status INTEGER NOT NULL, report BLOB NOT NULL, user INTEGER NOT NULL);
-- One row. `number` is the highest that a backup ever had; first_full and last_full are the lowest and the highest
-- that a full snapshot had since the catalogue was begun. `bytes` adds up the lower 32 bits of the sizes and
-- `large` the upper ones, because the sum of two sizes can be too large for one number.
CREATE TABLE IF NOT EXISTS counters(number INTEGER NOT NULL, first_full INTEGER, last_full INTEGER,
  files INTEGER NOT NULL, bytes INTEGER NOT NULL, failures INTEGER NOT NULL, large INTEGER NOT NULL);
INSERT INTO counters SELECT 0, NULL, NULL, 0, 0, 0, 0 WHERE NOT EXISTS(SELECT 1 FROM counters);
)";

// `files` holds the newest version of each file, `versions` the older ones. A version is held by every
// existing full snapshot whose number lies from first_full to last_full or in one of its rows in `spans`, and
// by the partial snapshots that `held` names. A version has a row in `spans` when a full snapshot between two
// others that hold it did not hold it.
constexpr char kCatalogue[] = R"(
CREATE TABLE IF NOT EXISTS files(path TEXT PRIMARY KEY, id INTEGER NOT NULL, version INTEGER NOT NULL,
  size INTEGER NOT NULL, modified INTEGER NOT NULL, changed INTEGER NOT NULL, date REAL NOT NULL,
  damaged INTEGER NOT NULL, removed REAL, first_full INTEGER, last_full INTEGER) WITHOUT ROWID;
CREATE UNIQUE INDEX IF NOT EXISTS files_by_id ON files(id);
CREATE INDEX IF NOT EXISTS damaged_files ON files(path) WHERE damaged;
CREATE TABLE IF NOT EXISTS versions(file INTEGER NOT NULL, version INTEGER NOT NULL, size INTEGER NOT NULL,
  modified INTEGER NOT NULL, changed INTEGER NOT NULL, date REAL NOT NULL, damaged INTEGER NOT NULL,
  first_full INTEGER, last_full INTEGER, PRIMARY KEY(file, version)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS spans(file INTEGER NOT NULL, version INTEGER NOT NULL, first INTEGER NOT NULL,
  last INTEGER NOT NULL, PRIMARY KEY(file, version, first)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS held(snapshot INTEGER NOT NULL, file INTEGER NOT NULL, version INTEGER NOT NULL,
  PRIMARY KEY(snapshot, file, version)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS held_by_file ON held(file, version);
CREATE TABLE IF NOT EXISTS snapshots(number INTEGER PRIMARY KEY, id TEXT NOT NULL, time REAL NOT NULL,
  full INTEGER NOT NULL, prefix TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS full_snapshots ON snapshots(number) WHERE full;
-- Snapshots that are being taken out. After a crash this is gone on with.
CREATE TABLE IF NOT EXISTS leaving(number INTEGER PRIMARY KEY, full INTEGER NOT NULL);
-- When each backup was made, those whose snapshots are forgotten included.
CREATE TABLE IF NOT EXISTS backups(number INTEGER PRIMARY KEY, time REAL NOT NULL);
CREATE TABLE IF NOT EXISTS failures(path TEXT PRIMARY KEY, reason TEXT NOT NULL, since REAL NOT NULL)
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS marks(path TEXT PRIMARY KEY, mark INTEGER NOT NULL) WITHOUT ROWID;
CREATE TRIGGER IF NOT EXISTS file_added AFTER INSERT ON files WHEN new.removed IS NULL BEGIN
  UPDATE counters SET files = files + 1, bytes = bytes + (new.size & 4294967295),
    large = large + (new.size >> 32); END;
CREATE TRIGGER IF NOT EXISTS file_dropped AFTER DELETE ON files WHEN old.removed IS NULL BEGIN
  UPDATE counters SET files = files - 1, bytes = bytes - (old.size & 4294967295),
    large = large - (old.size >> 32); END;
CREATE TRIGGER IF NOT EXISTS file_changed AFTER UPDATE OF size, removed ON files
  WHEN old.size <> new.size OR (old.removed IS NULL) <> (new.removed IS NULL) BEGIN
  UPDATE counters SET files = files + (new.removed IS NULL) - (old.removed IS NULL),
    bytes = bytes + (new.size & 4294967295) * (new.removed IS NULL) -
      (old.size & 4294967295) * (old.removed IS NULL),
    large = large + (new.size >> 32) * (new.removed IS NULL) - (old.size >> 32) * (old.removed IS NULL); END;
CREATE TRIGGER IF NOT EXISTS failure_added AFTER INSERT ON failures BEGIN
  UPDATE counters SET failures = failures + 1; END;
CREATE TRIGGER IF NOT EXISTS failure_dropped AFTER DELETE ON failures BEGIN
  UPDATE counters SET failures = failures - 1; END;
)";

constexpr char kDropCatalogue[] = R"(
DROP TABLE IF EXISTS files;
DROP TABLE IF EXISTS versions;
DROP TABLE IF EXISTS spans;
DROP TABLE IF EXISTS held;
DROP TABLE IF EXISTS snapshots;
DROP TABLE IF EXISTS leaving;
DROP TABLE IF EXISTS backups;
DROP TABLE IF EXISTS failures;
DROP TABLE IF EXISTS marks;
UPDATE counters SET first_full = NULL, last_full = NULL, files = 0, bytes = 0, failures = 0, large = 0;
)";

// The second format kept the sum of the sizes as one number.
constexpr char kFromSecondFormat[] = R"(
DROP TRIGGER file_added;
DROP TRIGGER file_dropped;
DROP TRIGGER file_changed;
ALTER TABLE counters ADD COLUMN large INTEGER NOT NULL DEFAULT 0;
UPDATE counters SET (bytes, large) =
  (SELECT COALESCE(SUM(size & 4294967295), 0), COALESCE(SUM(size >> 32), 0) FROM files WHERE removed IS NULL);
)";

}  // namespace

// The file is made here, before SQLite opens it, so that nobody else can ever read the names of a user's
// files. SQLite is told not to follow symbolic links, so the path is answered without them.
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

void prepare(SQLite::Database& database) {
  const int format = database.execAndGet("PRAGMA user_version").getInt();
  if (format > kFormat) {
    throw SQLite::Exception("it was written by a newer version of this program", SQLITE_CANTOPEN);
  }
  database.exec("PRAGMA journal_mode=WAL");
  database.exec("PRAGMA synchronous=NORMAL");
  // Overwriting deleted data would double the writes, and nobody but its owner can read the file.
  database.exec("PRAGMA secure_delete=FAST");
  SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
  if (format < kFormat) {
    database.exec("DROP TABLE IF EXISTS records");
    if (format == 2) {
      database.exec(kFromSecondFormat);
    }
    database.exec("PRAGMA user_version=" + std::to_string(kFormat));
  }
  database.exec(kPersonal);
  database.exec(kCatalogue);
  transaction.commit();
}

void clearCatalogue(SQLite::Database& database) {
  SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
  database.exec(kDropCatalogue);
  database.exec(kCatalogue);
  transaction.commit();
}

}  // namespace keldane::schema
