#include "daemon/store/snapshots/Retention.h"

#include <algorithm>
#include <cmath>
#include <queue>
#include <utility>

namespace keldane::retention {

namespace {

constexpr double kHour = 3600;
constexpr double kDay = 86400;

/// Finds the newest snapshot of each period.
class NewestOfEach {
 public:
  NewestOfEach(std::int64_t (*periodOf)(double), bool prefersFull)
      : periodOf_(periodOf), prefersFull_(prefersFull) {}

  void consider(const SnapshotRecord& snapshot) {
    const SnapshotRecord*& newest = newest_[periodOf_(snapshot.time)];
    if (newest == nullptr || rank(*newest) < rank(snapshot)) {
      newest = &snapshot;
    }
  }
  void addTo(std::set<std::uint32_t>& kept) const {
    for (const auto& [period, snapshot] : newest_) {
      kept.insert(snapshot->number);
    }
  }

 private:
  using Rank = std::pair<bool, std::pair<double, std::uint32_t>>;
  Rank rank(const SnapshotRecord& snapshot) const {
    return {prefersFull_ && snapshot.full, {snapshot.time, snapshot.number}};
  }

  std::int64_t (*const periodOf_)(double);
  const bool prefersFull_;
  std::map<std::int64_t, const SnapshotRecord*> newest_;
};

std::int64_t periodOf(double time, double length) {
  constexpr double kLimit = 1e15;  // NaN and times beyond this limit lie in the last period
  const double period = std::floor(time / length);
  return static_cast<std::int64_t>(period < kLimit ? std::max(period, -kLimit) : kLimit);
}

}  // namespace

std::int64_t hourOf(double time) { return periodOf(time, kHour); }
std::int64_t dayOf(double time) { return periodOf(time, kDay); }
// The epoch was a Thursday, and these weeks begin on Mondays.
std::int64_t weekOf(double time) { return periodOf(time + 3 * kDay, 7 * kDay); }

std::set<std::uint32_t> keptByTime(const std::vector<SnapshotRecord>& snapshots, double now) {
  std::set<std::uint32_t> kept;
  NewestOfEach hours(hourOf, false);
  NewestOfEach days(dayOf, true);
  NewestOfEach weeks(weekOf, true);
  std::uint32_t newestFull = 0;
  for (const SnapshotRecord& snapshot : snapshots) {
    if (!snapshot.prefix.empty()) {
      continue;
    }
    const double age = now - snapshot.time;
    if (snapshot.full) {
      newestFull = std::max(newestFull, snapshot.number);
    }
    if (age <= kHour) {
      kept.insert(snapshot.number);
    }
    if (age <= 24 * kHour) {
      hours.consider(snapshot);
    }
    if (age <= 30 * kDay) {
      days.consider(snapshot);
    }
    if (age <= 365 * kDay) {
      weeks.consider(snapshot);
    }
  }
  for (const NewestOfEach* newest : {&hours, &days, &weeks}) {
    newest->addTo(kept);
  }
  if (newestFull != 0) {
    kept.insert(newestFull);
  }
  return kept;
}

ItemsBySnapshot cover(const ItemsBySnapshot& holders, std::size_t itemCount) {
  ItemsBySnapshot chosen;
  std::vector<bool> isCovered(itemCount, false);
  // A count can only become smaller while others are chosen, so it is computed again when it comes to the
  // top.
  std::priority_queue<std::pair<std::size_t, std::uint32_t>> byCount;
  for (const auto& [snapshot, items] : holders) {
    byCount.emplace(items.size(), snapshot);
  }
  while (!byCount.empty()) {
    const auto [count, snapshot] = byCount.top();
    byCount.pop();
    std::vector<std::size_t> left;
    for (const std::size_t item : holders.at(snapshot)) {
      if (!isCovered[item]) {
        left.push_back(item);
      }
    }
    if (left.empty()) {
      continue;
    }
    if (left.size() < count) {
      byCount.emplace(left.size(), snapshot);
      continue;
    }
    for (const std::size_t item : left) {
      isCovered[item] = true;
    }
    chosen.emplace(snapshot, std::move(left));
  }
  return chosen;
}

std::vector<std::uint32_t> worthGathering(std::vector<Pin> pins, std::uint64_t mostBytes) {
  std::vector<std::uint32_t> chosen;
  for (const bool isGathered : {false, true}) {
    const auto end = std::partition(pins.begin(), pins.end(),
                                    [&](const Pin& pin) { return pin.isGathered == isGathered; });
    if (end - pins.begin() <= static_cast<std::ptrdiff_t>(kMostPins)) {
      continue;
    }
    std::sort(pins.begin(), end, [](const Pin& left, const Pin& right) {
      return std::pair(left.bytes, left.snapshot) < std::pair(right.bytes, right.snapshot);
    });
    std::uint64_t bytes = 0;
    for (auto pin = pins.begin(); pin != end && (bytes += pin->bytes) <= mostBytes; ++pin) {
      chosen.push_back(pin->snapshot);
    }
    if (chosen.size() > 1) {
      return chosen;
    }
    chosen.clear();
  }
  return chosen;
}

}  // namespace keldane::retention
