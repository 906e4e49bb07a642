#include "daemon/store/snapshots/Retention.h"

#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using namespace retention;
using testing::kDay;
using testing::kHour;
using Numbers = std::set<std::uint32_t>;

// The last second of Sunday, 2023-01-01, which is the last of an hour, a day and a week.
constexpr double kNow = 1672617599;

SnapshotRecord aged(std::uint32_t number, double age, bool full = false) {
  return {number, "", kNow - age, full, ""};
}

TEST(Retention, PeriodsAreThoseOfTheCalendar) {
  EXPECT_EQ(hourOf(kNow) + 1, hourOf(kNow + 1));
  EXPECT_EQ(dayOf(kNow) + 1, dayOf(kNow + 1));
  EXPECT_EQ(weekOf(kNow) + 1, weekOf(kNow + 1)) << "a week begins on Monday";
  EXPECT_EQ(weekOf(kNow), weekOf(kNow - 7 * kDay + 1));
  EXPECT_EQ(dayOf(-1), -1);
}

TEST(Retention, TheLastHourAndTheFutureAreKept) {
  EXPECT_EQ(
      keptByTime({aged(1, 3500), aged(2, 3000), aged(3, 10), aged(4, -99 * kDay), aged(5, -98 * kDay)}, kNow),
      (Numbers{1, 2, 3, 4, 5}));
}

TEST(Retention, OfADayTheNewestOfEachHourIsKept) {
  EXPECT_EQ(keptByTime({aged(1, 5.8 * kHour), aged(2, 5.2 * kHour), aged(3, 4.5 * kHour)}, kNow),
            (Numbers{2, 3}));
}

TEST(Retention, OfAMonthTheNewestOfEachDayIsKept) {
  EXPECT_EQ(keptByTime({aged(1, 20.8 * kDay), aged(2, 20.2 * kDay), aged(3, 19.5 * kDay)}, kNow),
            (Numbers{2, 3}));
}

TEST(Retention, AFullSnapshotStandsForItsDay) {
  EXPECT_EQ(keptByTime({aged(1, 20.8 * kDay, true), aged(2, 20.5 * kDay, true), aged(3, 20.2 * kDay)}, kNow),
            (Numbers{2}));
}

TEST(Retention, OfAYearTheNewestOfEachWeekIsKept) {
  EXPECT_EQ(
      keptByTime({aged(1, 75 * kDay), aged(2, 72 * kDay), aged(3, 69 * kDay), aged(4, 400 * kDay)}, kNow),
      (Numbers{2, 3}));
}

TEST(Retention, TheNewestFullSnapshotIsKeptForever) {
  EXPECT_EQ(keptByTime({aged(1, 3000 * kDay, true), aged(2, 2000 * kDay, true), aged(3, 1999 * kDay)}, kNow),
            (Numbers{2}));
}

TEST(Retention, GatheredSnapshotsStandForNoTime) {
  SnapshotRecord gathered = aged(2, 5.1 * kHour);
  gathered.prefix = "/x";
  EXPECT_EQ(keptByTime({aged(1, 5.2 * kHour), gathered}, kNow), (Numbers{1}));
}

TEST(Retention, ACoverTakesWhatHoldsMost) {
  const ItemsBySnapshot chosen = cover({{1, {0, 1}}, {2, {0, 1, 2}}, {3, {2, 3}}, {4, {3}}}, 4);
  EXPECT_EQ(chosen, (ItemsBySnapshot{{2, {0, 1, 2}}, {4, {3}}}));
  EXPECT_TRUE(cover({}, 0).empty());
}

TEST(Retention, FewPinsAreNotWorthGathering) {
  std::vector<Pin> pins;
  for (std::uint32_t number = 1; number <= kMostPins; ++number) {
    pins.push_back({number, false, 10});
    pins.push_back({number + 1000, true, 10});
  }
  EXPECT_TRUE(worthGathering(pins, 1000).empty());
  pins.push_back({500, false, 1'000'000});
  EXPECT_EQ(worthGathering(pins, 1000).size(), kMostPins) << "the large one is left where it is";
  EXPECT_EQ(worthGathering(pins, 35), (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_TRUE(worthGathering(pins, 15).empty()) << "to copy a single one gains nothing";
}

TEST(Retention, GatheredOnesAreGatheredAgainWhenTheyAreMany) {
  std::vector<Pin> pins;
  for (std::uint32_t number = 1; number <= kMostPins + 1; ++number) {
    pins.push_back({number, true, 10});
  }
  EXPECT_EQ(worthGathering(pins, 1000).size(), kMostPins + 1);
}

class StoreRetention : public testing::StoreFixture {
 protected:
  /// The numbers of the snapshots that may be forgotten at `now`, by default so late that only the newest
  /// full snapshot is kept for its time. Versions of deleted files are kept for 500,000 s.
  Numbers forgettable(double now = 1e9) {
    Numbers numbers;
    for (const SnapshotRecord& forgotten : store.forgettable(now, {.keepDeleted = 500'000})) {
      numbers.insert(forgotten.number);
    }
    return numbers;
  }
};

TEST_F(StoreRetention, WhatAloneHoldsANewestVersionStays) {
  addPartial(1, {"/a", "/b"});
  addPartial(2, {"/a"});
  EXPECT_TRUE(forgettable().empty());
  addPartial(3, {}, {"/a", "/b"});
  EXPECT_EQ(forgettable(), (Numbers{1, 2}));
  addFull(4, {}, {"/a", "/b"});
  EXPECT_EQ(forgettable(), (Numbers{1, 2, 3}));
  addPartial(5, {"/a"});
  EXPECT_EQ(forgettable(), (Numbers{1, 2, 3}));
  addFull(6, {}, {"/a"});
  EXPECT_EQ(forgettable(), (Numbers{1, 2, 3, 5})) << "the last does not hold /b";
}

TEST_F(StoreRetention, DeletedFilesStayForTheirTime) {
  addPartial(1, {"/a"});
  addFull(2, {"/b"});
  store.setRemoved("/a", true, 1e9);
  EXPECT_TRUE(forgettable(1e9 + 499'999).empty());
  EXPECT_EQ(forgettable(1e9 + 500'001), (Numbers{1}));
}

TEST_F(StoreRetention, AVersionThatAFullSnapshotHeldForAWhileStays) {
  addFull(1, {"/a", "/b"});
  addFull(2, {}, {"/b"});
  addFull(3, {}, {"/a", "/b"});
  addFull(4, {}, {"/b"});
  EXPECT_EQ(forgettable(), (Numbers{1, 2})) << "/a is in the first and the third";
  store.removeSnapshots({3});
  EXPECT_EQ(forgettable(), (Numbers{2}));
}

TEST_F(StoreRetention, BesidesADamagedVersionTheLastWholeOneStays) {
  addPartial(1, {"/a"});
  addPartial(2, {"/a"});
  addPartial(3, {"/a"});
  EXPECT_EQ(forgettable(), (Numbers{1, 2}));
  store.setDamaged("/a", idOf(3));
  EXPECT_EQ(forgettable(), (Numbers{1}));
  addFull(4, {}, {"/a"});
  EXPECT_EQ(forgettable(), (Numbers{1, 3}));
}

TEST_F(StoreRetention, ManyPinsAreGathered) {
  std::set<std::string> files;
  for (std::uint32_t number = 1; number <= 50; ++number) {
    addPartial(number, {"/f" + std::to_string(number)});
    files.insert("/f" + std::to_string(number));
  }
  store.setDamaged("/f7", idOf(7));
  const auto gatherable = store.gatherable(1e9, {}, 1'000'000);
  std::vector<std::pair<std::string, std::uint32_t>> gathered;
  for (const auto& [path, version] : gatherable) {
    EXPECT_EQ(version.snapshot, idOf(version.version));
    EXPECT_EQ(version.size, version.version);
    EXPECT_EQ(files.erase(path), 1U);
    gathered.emplace_back(path, version.version);
  }
  EXPECT_EQ(files, (std::set<std::string>{"/f7"})) << "what is damaged cannot be fetched";
  SnapshotRecord copy = snapshot(60, false);
  copy.prefix = "/x";
  store.addGathered(copy, gathered);
  EXPECT_EQ(forgettable().size(), 49U);
  EXPECT_TRUE(store.gatherable(1e9, {}, 1'000'000).empty());
}

}  // namespace
}  // namespace keldane
