#include "daemon/store/Holders.h"

#include <algorithm>

#include "daemon/store/Sql.h"

namespace keldane {

Holders::Holders(SQLite::Database& database)
    : held_(database, "SELECT snapshot FROM held WHERE file = ? AND version = ? ORDER BY snapshot DESC"),
      spans_(database, "SELECT first, last FROM spans WHERE file = ? AND version = ? ORDER BY first DESC") {
  SQLite::Statement row(database, "SELECT number, id, time, full, prefix FROM snapshots ORDER BY number");
  while (row.executeStep()) {
    const SnapshotRecord snapshot = {row.getColumn(0).getUInt(), row.getColumn(1).getString(),
                                     row.getColumn(2).getDouble(), row.getColumn(3).getInt() != 0,
                                     row.getColumn(4).getString()};
    snapshots_.emplace_hint(snapshots_.end(), snapshot.number, snapshot);
    if (snapshot.full) {
      fulls_.push_back(snapshot.number);
    }
  }
}

std::vector<std::uint32_t> Holders::all(std::int64_t file, std::int64_t version,
                                        const FullInterval& interval) {
  std::vector<std::uint32_t> numbers;
  {
    const sql::Rewinding rewinding(held_);
    for (sql::bindAll(held_, file, version); held_.executeStep();) {
      if (const std::uint32_t number = held_.getColumn(0).getUInt(); snapshots_.contains(number)) {
        numbers.push_back(number);
      }
    }
  }
  const auto addFulls = [&](std::int64_t first, std::int64_t last) {
    for (auto full = std::lower_bound(fulls_.begin(), fulls_.end(), first);
         full != fulls_.end() && *full <= last; ++full) {
      numbers.push_back(*full);
    }
  };
  if (interval.first && interval.last) {
    addFulls(*interval.first, *interval.last);
  }
  const sql::Rewinding rewinding(spans_);
  for (sql::bindAll(spans_, file, version); spans_.executeStep();) {
    addFulls(spans_.getColumn(0).getInt64(), spans_.getColumn(1).getInt64());
  }
  return numbers;
}

const SnapshotRecord* Holders::lastFull(std::int64_t first, std::int64_t last) const {
  const auto after = std::upper_bound(fulls_.begin(), fulls_.end(), last);
  return after == fulls_.begin() || *std::prev(after) < first ? nullptr : &snapshots_.at(*std::prev(after));
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
  const auto isFull = [&](std::uint32_t number) { return snapshots_.at(number).full; };
  const auto full = std::find_if(numbers.begin(), numbers.end(), isFull);
  return numbers.empty() ? nullptr : &snapshots_.at(full != numbers.end() ? *full : numbers.front());
}

}  // namespace keldane
