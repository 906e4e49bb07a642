// The newest version of each file: by its path, for a folder, for everything below a path, and in total.
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <random>
#include <set>
#include <utility>

#include "daemon/ByteSum.h"
#include "daemon/store/Store.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

namespace {

// The columns of a BackupRecord; in a query, the path stands before them.
#define KELDANE_RECORD "version, size, modified, changed, date, damaged, removed IS NOT NULL"

using sql::recordAt;

}  // namespace

std::optional<BackupRecord> Store::record(const std::string& path) {
  const ScopedLock guard(readMutex_);
  if (!recordQuery_) {
    recordQuery_.emplace(reader_, "SELECT " KELDANE_RECORD " FROM files WHERE path = ?");
  }
  SQLite::Statement& row = *recordQuery_;
  const sql::Rewinding rewinding(row);
  row.bind(1, path);
  return row.executeStep() ? std::optional(recordAt(row, 0)) : std::nullopt;
}

std::set<std::string> Store::damagedFiles() {
  std::set<std::string> paths;
  const ScopedLock guard(readMutex_);
  SQLite::Statement row(reader_, "SELECT path FROM files WHERE damaged");
  while (row.executeStep()) {
    paths.insert(row.getColumn(0).getString());
  }
  return paths;
}

// Steps over a folder's children in the order of their paths. The records below a subfolder are skipped, so
// the time depends on the number of direct children only.
template <class OnFile, class OnFolder>
void Store::visitChildren(const std::string& folder, const OnFile& onFile, const OnFolder& onFolder) {
  const sql::Below below(folder);
  std::string from = below.from;
  for (bool isFirst = true, isDone = false; !isDone; isFirst = false) {
    if (!isFirst) {
      sql::letOthersIn();
    }
    const ScopedLock guard(readMutex_);
    SQLite::Statement row(
        reader_, "SELECT path, " KELDANE_RECORD " FROM files WHERE path >= ? AND path < ? ORDER BY path");
    sql::bindAll(row, from, below.to);
    for (std::size_t steps = 0; steps < sql::kSlice; ++steps) {
      isDone = !row.executeStep();
      if (isDone) {
        break;
      }
      std::string path = row.getColumn(0).getString();
      const std::size_t slash = path.find('/', below.from.size());
      if (slash == std::string::npos) {
        from = path + '\0';  // the smallest path after this one
        onFile(std::move(path), row);
        continue;
      }
      onFolder(path.substr(below.from.size(), slash - below.from.size()));
      from = path.substr(0, slash) + '0';
      row.reset();
      sql::bindAll(row, from, below.to);
    }
  }
}

std::map<std::string, BackupRecord> Store::recordsIn(const std::string& folder,
                                                     std::vector<std::string>* folders) {
  std::map<std::string, BackupRecord> records;
  visitChildren(
      folder,
      [&](std::string path, SQLite::Statement& row) {
        records.emplace_hint(records.end(), std::move(path), recordAt(row, 1));
      },
      [&](std::string name) {
        if (folders != nullptr) {
          folders->push_back(std::move(name));
        }
      });
  if (folders != nullptr) {
    std::sort(folders->begin(), folders->end());  // "a!" comes before "a/" among the paths
  }
  return records;
}

std::vector<std::string> Store::foldersWithRecordsIn(const std::string& folder) {
  std::vector<std::string> names;
  recordsIn(folder, &names);
  return names;
}

bool Store::hasRecordBelow(const std::string& folder) {
  const sql::Below below(folder);
  const ScopedLock guard(readMutex_);
  return sql::numberOf(reader_, "SELECT EXISTS(SELECT 1 FROM files WHERE path >= ? AND path < ?)", below.from,
                       below.to) != 0;
}

bool Store::holdsFiles(const std::string& path) {
  const sql::Below below(path);
  const ScopedLock guard(readMutex_);
  return sql::numberOf(reader_,
                       "SELECT EXISTS(SELECT 1 FROM files WHERE path = ? AND removed IS NULL) OR"
                       " EXISTS(SELECT 1 FROM files WHERE path >= ? AND path < ? AND removed IS NULL)",
                       path, below.from, below.to) != 0;
}

void Store::visitRecords(const std::string& path, const VisitRecord& visit) {
  if (const std::optional<BackupRecord> own = record(path); own && !visit(path, *own)) {
    return;
  }
  const sql::Below below(path);
  std::string from = below.from;
  for (std::vector<std::pair<std::string, BackupRecord>> slice;; slice.clear()) {
    {
      const ScopedLock guard(readMutex_);
      SQLite::Statement row(reader_, "SELECT path, " KELDANE_RECORD
                                     " FROM files WHERE path >= ? AND path < ? ORDER BY path LIMIT ?");
      sql::bindAll(row, from, below.to, std::uint64_t{sql::kSlice});
      while (row.executeStep()) {
        slice.emplace_back(row.getColumn(0).getString(), recordAt(row, 1));
      }
    }
    if (!std::all_of(slice.begin(), slice.end(),
                     [&](const auto& row) { return visit(row.first, row.second); }) ||
        slice.size() < sql::kSlice) {
      return;
    }
    from = slice.back().first + '\0';
    sql::letOthersIn();
  }
}

// Each draw takes the file with the next higher number, so files after a gap are drawn a little more often.
std::vector<std::string> Store::sample(std::size_t most) {
  std::set<std::string> paths;
  std::mt19937_64 chance(std::random_device{}());
  const ScopedLock guard(readMutex_);
  const std::int64_t highest = sql::numberOf(reader_, "SELECT MAX(id) FROM files");
  SQLite::Statement row(reader_,
                        "SELECT path FROM files WHERE id >= ? AND removed IS NULL ORDER BY id LIMIT 1");
  for (std::size_t draws = 0; highest > 0 && paths.size() < most && draws < 4 * most; ++draws) {
    const sql::Rewinding rewinding(row);
    row.bind(1, std::uniform_int_distribution<std::int64_t>(1, highest)(chance));
    if (row.executeStep()) {
      paths.insert(row.getColumn(0).getString());
    }
  }
  return {paths.begin(), paths.end()};
}

Store::Totals Store::totals() {
  const ScopedLock guard(readMutex_);
  SQLite::Statement row(reader_, "SELECT files, bytes, large FROM counters");
  row.executeStep();
  const auto files = static_cast<std::uint64_t>(row.getColumn(0).getInt64());
  const auto bytes = static_cast<std::uint64_t>(row.getColumn(1).getInt64());
  const auto large = static_cast<std::uint64_t>(row.getColumn(2).getInt64());
  std::uint64_t upper = 0;
  return {files, __builtin_mul_overflow(large, std::uint64_t{1} << 32, &upper)
                     ? std::numeric_limits<std::uint64_t>::max()
                     : saturatedSum(upper, bytes)};
}

}  // namespace keldane
