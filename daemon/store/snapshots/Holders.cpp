#include "daemon/store/snapshots/Holders.h"

#include <algorithm>
#include <utility>

namespace keldane {

SnapshotTable::SnapshotTable(SQLite::Database& database) {
  SQLite::Statement row(database, "SELECT number, id, time, full, prefix FROM snapshots ORDER BY number");
  while (row.executeStep()) {
    SnapshotRecord snapshot = {row.getColumn(0).getUInt(), row.getColumn(1).getString(),
                               row.getColumn(2).getDouble(), row.getColumn(3).getInt() != 0,
                               row.getColumn(4).getString()};
    if (snapshot.full) {
      fulls.push_back(snapshot.number);
    }
    byNumber.emplace_hint(byNumber.end(), snapshot.number, std::move(snapshot));
  }
}

Holders::Holders(SQLite::Database& database, std::shared_ptr<const SnapshotTable> snapshots)
    : snapshots_(std::move(snapshots)),
      held_(database, "SELECT snapshot FROM held WHERE file = ? AND version = ? ORDER BY snapshot DESC"),
      spans_(database, "SELECT first, last FROM spans WHERE file = ? AND version = ? ORDER BY first DESC") {}

std::vector<std::uint32_t> Holders::all(std::int64_t file, std::int64_t version,
                                        const FullInterval& interval) {
  std::vector<std::uint32_t> numbers;
  {
    SQLite::Statement& row = held_.get();
    const sql::Rewinding rewinding(row);
    for (sql::bindAll(row, file, version); row.executeStep();) {
      if (const std::uint32_t number = row.getColumn(0).getUInt(); snapshots().contains(number)) {
        numbers.push_back(number);
      }
    }
  }
  const std::vector<std::uint32_t>& fulls = snapshots_->fulls;
  const auto addFulls = [&](std::int64_t first, std::int64_t last) {
    for (auto full = std::lower_bound(fulls.begin(), fulls.end(), first);
         full != fulls.end() && *full <= last; ++full) {
      numbers.push_back(*full);
    }
  };
  if (interval.first && interval.last) {
    addFulls(*interval.first, *interval.last);
  }
  SQLite::Statement& row = spans_.get();
  const sql::Rewinding rewinding(row);
  for (sql::bindAll(row, file, version); row.executeStep();) {
    addFulls(row.getColumn(0).getInt64(), row.getColumn(1).getInt64());
  }
  return numbers;
}

const SnapshotRecord* Holders::lastFull(std::int64_t first, std::int64_t last) const {
  const std::vector<std::uint32_t>& fulls = snapshots_->fulls;
  const auto after = std::upper_bound(fulls.begin(), fulls.end(), last);
  return after == fulls.begin() || *std::prev(after) < first ? nullptr : &snapshots().at(*std::prev(after));
}

const SnapshotRecord* Holders::best(std::int64_t file, std::int64_t version, const FullInterval& interval,
                                    std::uint32_t upTo) {
  if (interval.first && interval.last) {
    const SnapshotRecord* full = lastFull(*interval.first, std::min<std::int64_t>(*interval.last, upTo));
    if (full == nullptr) {
      full = lastFull(*interval.first, *interval.last);
    }
    if (full != nullptr) {
      return full;
    }
  }
  const std::vector<std::uint32_t> numbers = all(file, version, {});
  const auto isFull = [&](std::uint32_t number) { return snapshots().at(number).full; };
  const auto full = std::find_if(numbers.begin(), numbers.end(), isFull);
  return numbers.empty() ? nullptr : &snapshots().at(full != numbers.end() ? *full : numbers.front());
}

}  // namespace keldane
