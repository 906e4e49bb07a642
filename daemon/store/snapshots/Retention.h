// Decides which snapshots may be forgotten. These functions use no database.
//
// These snapshots are kept for their time: all of the last hour and of the future, because the clock may have
// been set back; the newest of each of the last 24 hours; the newest of each of the last 30 days; the newest
// of each ISO week of the last 365 days; and always the newest full one. Hours, days and weeks are counted in
// UTC. When a day or a week has full snapshots, its newest full one is kept, because a partial one holds only
// a part of the state. Gathered snapshots are copies and are kept for no time.
//
// In addition, as few snapshots as possible are kept so that every needed version is in one of them. The
// newest version of a file is needed while the file is on the disk, and for a set time after it was removed.
// When that version is damaged, the newest undamaged one is needed too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "daemon/store/Store.h"

namespace keldane::retention {

/// The hour, day and ISO week of a time (seconds since the UNIX epoch), counted from the epoch. Of the
/// partial snapshots of one hour only the newest is kept, so it should hold what the others of that hour
/// hold.
std::int64_t hourOf(double time);
std::int64_t dayOf(double time);
std::int64_t weekOf(double time);

/// The numbers of the snapshots that are kept for their time.
std::set<std::uint32_t> keptByTime(const std::vector<SnapshotRecord>& snapshots, double now);

/// Items, as indices from 0 on, by the number of a snapshot that holds them.
using ItemsBySnapshot = std::map<std::uint32_t, std::vector<std::size_t>>;
/// Chooses snapshots that together hold all items. Each step takes the snapshot that holds most of the
/// remaining items. The result has the items for which each snapshot was chosen.
ItemsBySnapshot cover(const ItemsBySnapshot& holders, std::size_t itemCount);

/// A snapshot that is kept for the sake of single versions.
struct Pin {
  std::uint32_t snapshot = 0;
  bool isGathered = false;
  std::uint64_t bytes = 0;  ///< the size of these versions
};
/// When there are more pins than this, of either kind, gathering is worth the work.
inline constexpr std::size_t kMostPins = 48;
/// The pins whose versions are to be gathered. There are none while pins are few; otherwise they are the
/// smallest ones, at most about `mostBytes` in total. Versions that were gathered before are gathered again
/// only when there are many such pins.
std::vector<std::uint32_t> worthGathering(std::vector<Pin> pins, std::uint64_t mostBytes);

}  // namespace keldane::retention
