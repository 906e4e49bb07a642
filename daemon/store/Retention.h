// What may be forgotten: decisions without a database.
//
// Kept by time are: all snapshots of the last hour and of the future (the clock may have been set back); of
// the last 24 hours the newest of each hour; of the last 30 days the newest of each day; of the last 365 days
// the newest of each ISO week; and the newest full one always. Hours, days and weeks are counted in UTC.
// Where a day or a week has full snapshots, the newest full one stands for it, because a partial one holds a
// part of the state only. Gathered snapshots are copies and stand for no time.
//
// Kept besides are as few as can be found of those that hold a version that is needed: the newest of a file
// that is on the disk, or that was removed less than the set time ago; if that is damaged, also the newest
// undamaged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "daemon/store/Store.h"

namespace keldane::retention {

/// Which hour, day and ISO week a time (seconds since the UNIX epoch) lies in, counted from the epoch.
/// Partial snapshots of one hour are thinned to the newest, so that one should hold what the others of its
/// hour hold.
std::int64_t hourOf(double time);
std::int64_t dayOf(double time);
std::int64_t weekOf(double time);

/// The numbers of the snapshots that are kept for their time.
std::set<std::uint32_t> keptByTime(const std::vector<SnapshotRecord>& snapshots, double now);

/// Items, as indices from 0 on, by the number of a snapshot that holds them.
using ItemsBySnapshot = std::map<std::uint32_t, std::vector<std::size_t>>;
/// Chooses snapshots that together hold all items: the one that holds most of those that are left, again and
/// again. Answers for each that was chosen the items that it was chosen for.
ItemsBySnapshot cover(const ItemsBySnapshot& holders, std::size_t itemCount);

/// A snapshot that is kept for the sake of single versions.
struct Pin {
  std::uint32_t snapshot = 0;
  bool isGathered = false;
  std::uint64_t bytes = 0;  ///< of these versions
};
/// More pins than this, of either kind, are worth gathering.
inline constexpr std::size_t kMostPins = 48;
/// The pins whose versions are to be gathered: none, while there are few; else the smallest ones, at most
/// about `mostBytes` in total. What was gathered before is gathered again only when there are many of those.
std::vector<std::uint32_t> worthGathering(std::vector<Pin> pins, std::uint64_t mostBytes);

}  // namespace keldane::retention
