// The queries that choose the snapshots to forget and the versions to gather. They run on a connection of
// their own, so nobody has to wait for them.
#include <iterator>
#include <memory>
#include <utility>

#include "daemon/store/Store.h"
#include "daemon/store/snapshots/Holders.h"
#include "daemon/store/snapshots/Retention.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

namespace {

using retention::ItemsBySnapshot;

/// The needed versions that are in no snapshot that is kept for its time, and the snapshots that hold them.
struct Needed {
  struct Version {
    std::int64_t file = 0;
    std::uint32_t version = 0;
  };
  std::vector<Version> versions;
  ItemsBySnapshot holders;  ///< indices in `versions`
};

/// Reads one state of the catalogue.
class RetentionQuery {
 public:
  RetentionQuery(const std::string& path, double now, const Store::Retention& rules)
      : question_(path), holders_(database(), std::make_shared<const SnapshotTable>(database())) {
    std::vector<SnapshotRecord> all;
    for (const auto& [number, snapshot] : holders_.snapshots()) {
      all.push_back(snapshot);
    }
    kept_ = retention::keptByTime(all, now);
    findNeeded(now - rules.keepDeleted);
    pins_ = retention::cover(needed_.holders, needed_.versions.size());
  }

  SQLite::Database& database() { return question_.database(); }
  Holders& holders() { return holders_; }
  const Needed& needed() const { return needed_; }
  /// The snapshots that are kept for single versions, which are given as indices in `needed().versions`.
  const ItemsBySnapshot& pins() const { return pins_; }
  bool isKept(std::uint32_t number) const { return kept_.contains(number) || pins_.contains(number); }

 private:
  // Nearly all newest versions are in the newest full snapshot, so those are passed over at once. When a
  // newest version is damaged, the newest undamaged one is needed too.
  void findNeeded(double removedAfter) {
    std::int64_t newestFull = -1;
    for (const auto& [number, snapshot] : holders_.snapshots()) {
      newestFull = snapshot.full ? number : newestFull;
    }
    SQLite::Statement row(database(),
                          "SELECT id, version, first_full, last_full, damaged FROM files"
                          " WHERE (removed IS NULL OR removed > ?1) AND"
                          " (damaged OR last_full IS NULL OR last_full < ?2 OR first_full > ?2)");
    SQLite::Statement undamaged(database(),
                                "SELECT version, first_full, last_full FROM versions"
                                " WHERE file = ? AND NOT damaged ORDER BY version DESC LIMIT 1");
    for (sql::bindAll(row, removedAfter, newestFull); row.executeStep();) {
      const std::int64_t file = row.getColumn(0).getInt64();
      addNeeded(file, row.getColumn(1).getUInt(), {sql::optionalAt(row, 2), sql::optionalAt(row, 3)});
      if (row.getColumn(4).getInt() != 0) {
        const sql::Rewinding rewinding(undamaged);
        if (sql::bindAll(undamaged, file).executeStep()) {
          addNeeded(file, undamaged.getColumn(0).getUInt(),
                    {sql::optionalAt(undamaged, 1), sql::optionalAt(undamaged, 2)});
        }
      }
    }
  }

  void addNeeded(std::int64_t file, std::uint32_t version, const FullInterval& interval) {
    const std::vector<std::uint32_t> numbers = holders_.all(file, version, interval);
    for (const std::uint32_t number : numbers) {
      if (kept_.contains(number)) {
        return;
      }
    }
    if (!numbers.empty()) {
      for (const std::uint32_t number : numbers) {
        needed_.holders[number].push_back(needed_.versions.size());
      }
      needed_.versions.push_back({file, version});
    }
  }

  sql::LongQuestion question_;
  Holders holders_;
  std::set<std::uint32_t> kept_;
  Needed needed_;
  ItemsBySnapshot pins_;
};

using NamedVersion = std::pair<std::string, VersionRecord>;

/// Reads the data of a needed version, so that it can be fetched from its snapshot.
class VersionReader {
 public:
  explicit VersionReader(SQLite::Database& database)
      : query_(database,
               "SELECT path, size, modified, changed, date, damaged FROM files WHERE id = ?1 AND version = ?2"
               " UNION ALL SELECT path, v.size, v.modified, v.changed, v.date, v.damaged FROM versions v"
               " JOIN files ON id = file WHERE file = ?1 AND v.version = ?2") {}

  NamedVersion read(const Needed::Version& version, const SnapshotRecord& holder) {
    const sql::Rewinding rewinding(query_);
    NamedVersion found;
    if (sql::bindAll(query_, version.file, version.version).executeStep()) {
      found.first = query_.getColumn(0).getString();
      static_cast<FileState&>(found.second) = sql::stateAt(query_, 1);
      found.second.version = version.version;
      found.second.date = query_.getColumn(4).getDouble();
      found.second.damaged = query_.getColumn(5).getInt() != 0;
      found.second.snapshot = holder.id;
      found.second.prefix = holder.prefix;
    }
    return found;
  }

 private:
  SQLite::Statement query_;
};

}  // namespace

std::vector<SnapshotRecord> Store::forgettable(double now, const Retention& rules) {
  RetentionQuery query(path_, now, rules);
  std::vector<SnapshotRecord> forgettable;
  for (const auto& [number, snapshot] : query.holders().snapshots()) {
    if (!query.isKept(number)) {
      forgettable.push_back(snapshot);
    }
  }
  return forgettable;
}

std::vector<std::pair<std::string, VersionRecord>> Store::gatherable(double now, const Retention& rules,
                                                                     std::uint64_t mostBytes) {
  RetentionQuery query(path_, now, rules);
  if (query.pins().size() <= retention::kMostPins) {
    return {};
  }
  VersionReader reader(query.database());
  std::vector<retention::Pin> pins;
  std::map<std::uint32_t, std::vector<NamedVersion>> versions;
  for (const auto& [number, items] : query.pins()) {
    const SnapshotRecord& snapshot = query.holders().snapshots().at(number);
    retention::Pin pin = {number, !snapshot.prefix.empty(), 0};
    bool isWhole = true;
    for (const std::size_t item : items) {
      versions[number].push_back(reader.read(query.needed().versions[item], snapshot));
      pin.bytes += versions[number].back().second.size;
      isWhole = isWhole && !versions[number].back().second.damaged;
    }
    if (isWhole) {  // otherwise it cannot be fetched, and the snapshot is kept
      pins.push_back(pin);
    }
  }
  std::vector<NamedVersion> gathered;
  for (const std::uint32_t number : retention::worthGathering(std::move(pins), mostBytes)) {
    std::move(versions[number].begin(), versions[number].end(), std::back_inserter(gathered));
  }
  return gathered;
}

}  // namespace keldane
