// The versions of a file, and the state of all files below a path at a past backup.
#include <limits>
#include <utility>

#include "daemon/store/Store.h"
#include "daemon/store/snapshots/Holders.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

namespace {

// The columns of a StoredVersion.
#define KELDANE_VERSION "version, size, modified, changed, date, damaged, first_full, last_full"

struct StoredVersion {
  VersionRecord record;
  FullInterval interval;
};

StoredVersion versionAt(SQLite::Statement& row, int column) {
  StoredVersion version;
  static_cast<FileState&>(version.record) = sql::stateAt(row, column + 1);
  version.record.version = row.getColumn(column).getUInt();
  version.record.date = row.getColumn(column + 4).getDouble();
  version.record.damaged = row.getColumn(column + 5).getInt() != 0;
  version.interval = {sql::optionalAt(row, column + 6), sql::optionalAt(row, column + 7)};
  return version;
}

/// The limits of a past state.
struct AsOf {
  std::uint32_t number = std::numeric_limits<std::uint32_t>::max();
  double date = std::numeric_limits<double>::infinity();
  std::optional<double> time;  ///< files that were removed up to this time are left out

  bool has(const VersionRecord& version) const { return version.version <= number && version.date <= date; }
};

// A number and a time may be given; the earlier of the two states counts.
AsOf asOf(SQLite::Database& database, std::uint32_t number, double before) {
  AsOf bounds;
  if (number != 0) {
    bounds.number = number;
    SQLite::Statement row(database,
                          "SELECT time FROM backups WHERE number <= ? ORDER BY number DESC LIMIT 1");
    row.bind(1, number);
    if (row.executeStep()) {
      bounds.time = row.getColumn(0).getDouble();
    }
  }
  if (before != 0) {
    bounds.date = before;
    bounds.time = bounds.time ? std::min(*bounds.time, before) : before;
  }
  return bounds;
}

/// Reads files as they were at a backup.
class StateReader {
 public:
  StateReader(SQLite::Database& database, const AsOf& bounds)
      : bounds_(bounds),
        holders_(database, std::make_shared<const SnapshotTable>(database)),
        files_(database, "SELECT path, id, removed, " KELDANE_VERSION
                         " FROM files WHERE path >= ? AND path < ? ORDER BY path"),
        older_(database, "SELECT " KELDANE_VERSION
                         " FROM versions WHERE file = ? AND version <= ? AND date <= ?"
                         " ORDER BY version DESC LIMIT 1") {}

  /// The direct contents of a folder. The rest of each folder in it is skipped after its first file.
  Store::FolderState readFolder(const std::string& folder) {
    Store::FolderState state;
    const sql::Below below(folder);
    std::string from = below.from;
    const sql::Rewinding rewinding(files_);
    sql::bindAll(files_, from, below.to);
    while (files_.executeStep()) {
      const std::string path = files_.getColumn(0).getString();
      std::optional<VersionRecord> version = versionOf(files_.getColumn(1).getInt64());
      const std::size_t slash = path.find('/', below.from.size());
      if (version && slash == std::string::npos) {
        state.files.emplace_back(path, *std::move(version));
      } else if (version) {
        state.folders.push_back(path.substr(0, slash));
        from = state.folders.back() + '0';  // '0' comes after '/'
        files_.reset();
        sql::bindAll(files_, from, below.to);
      }
    }
    return state;
  }

  /// Adds the files of a range of paths, whose end is not included.
  void read(const std::string& from, const std::string& to,
            std::vector<std::pair<std::string, VersionRecord>>& found) {
    const sql::Rewinding rewinding(files_);
    for (sql::bindAll(files_, from, to); files_.executeStep();) {
      if (std::optional<VersionRecord> version = versionOf(files_.getColumn(1).getInt64())) {
        found.emplace_back(files_.getColumn(0).getString(), *std::move(version));
      }
    }
  }

 private:
  std::optional<VersionRecord> versionOf(std::int64_t file) {
    if (bounds_.time && !files_.getColumn(2).isNull() && files_.getColumn(2).getDouble() <= *bounds_.time) {
      return std::nullopt;
    }
    StoredVersion version = versionAt(files_, 3);
    if (!bounds_.has(version.record)) {
      const sql::Rewinding rewinding(older_);
      if (!sql::bindAll(older_, file, bounds_.number, bounds_.date).executeStep()) {
        return std::nullopt;
      }
      version = versionAt(older_, 0);
    }
    const SnapshotRecord* holder =
        holders_.best(file, version.record.version, version.interval, bounds_.number);
    if (holder == nullptr) {
      return std::nullopt;  // its snapshot is being forgotten
    }
    version.record.snapshot = holder->id;
    version.record.prefix = holder->prefix;
    return std::move(version.record);
  }

  const AsOf bounds_;
  Holders holders_;
  SQLite::Statement files_, older_;
};

}  // namespace

std::shared_ptr<const SnapshotTable> Store::snapshotTable() {
  if (!snapshotTable_) {
    snapshotTable_ = std::make_shared<const SnapshotTable>(reader_);
  }
  return snapshotTable_;
}

void Store::snapshotsHaveChanged() {
  const ScopedLock guard(readMutex_);
  snapshotTable_.reset();
}

std::vector<VersionRecord> Store::versions(const std::string& path, std::size_t most) {
  const ScopedLock guard(readMutex_);
  std::vector<VersionRecord> versions;
  SQLite::Statement newest(reader_, "SELECT id, " KELDANE_VERSION " FROM files WHERE path = ?");
  newest.bind(1, path);
  if (!newest.executeStep()) {
    return versions;
  }
  Holders holders(reader_, snapshotTable());
  const std::int64_t file = newest.getColumn(0).getInt64();
  const auto add = [&](StoredVersion version) {
    if (const SnapshotRecord* holder = holders.best(file, version.record.version, version.interval,
                                                    std::numeric_limits<std::uint32_t>::max())) {
      version.record.snapshot = holder->id;
      version.record.prefix = holder->prefix;
      versions.push_back(std::move(version.record));
    }
  };
  if (most > 0) {
    add(versionAt(newest, 1));
  }
  SQLite::Statement older(reader_,
                          "SELECT " KELDANE_VERSION " FROM versions WHERE file = ? ORDER BY version DESC");
  older.bind(1, file);
  while (versions.size() < most && older.executeStep()) {
    add(versionAt(older, 0));
  }
  return versions;
}

Store::FolderState Store::folderAt(const std::string& folder, double time) {
  sql::LongQuestion question(path_);
  return StateReader(question.database(), asOf(question.database(), 0, time)).readFolder(folder);
}

std::vector<std::pair<std::string, VersionRecord>> Store::versionsBelow(const std::string& path,
                                                                        std::uint32_t number, double before) {
  std::vector<std::pair<std::string, VersionRecord>> found;
  sql::LongQuestion question(path_);
  StateReader reader(question.database(), asOf(question.database(), number, before));
  reader.read(path, path + '\0', found);  // the path itself, without the paths below it
  const sql::Below below(path);
  reader.read(below.from, below.to, found);
  return found;
}

}  // namespace keldane
