// Three years of work, to see that the number of snapshots stays bounded and that nothing is lost that is to
// be kept. Only the storage program is left out; the store is the real one.
#include <algorithm>
#include <cstdio>
#include <random>
#include <unordered_map>

#include "daemon/store/Retention.h"
#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

constexpr double kHour = 3600;
constexpr double kDay = 24 * kHour;
constexpr double kStart = 1'700'000'000 - 1'700'000'000 % 86400;
constexpr int kDays = 3 * 365;
constexpr int kBatchesAnHour = 3;
constexpr int kBatchesOfABusyHour = 30;  // on one day of thirty
constexpr std::size_t kMostSnapshots = 400;
constexpr std::uint32_t kWorthForgetting = 40;

class ThreeYears : public testing::StoreFixture {
 protected:
  struct File {
    std::uint32_t version = 0;  // the newest one
    double removed = 0;         // 0: it is there
  };
  using Version = std::pair<std::string, std::uint32_t>;
  struct Hash {
    std::size_t operator()(const Version& version) const {
      return std::hash<std::string>()(version.first) * 31 + version.second;
    }
  };

  std::mt19937 random{42};
  std::uint32_t number = 0, lastForgetting = 0;
  double now = kStart;
  std::map<std::string, File> files;
  std::vector<std::string> living;
  std::vector<std::string> shortLived;
  std::map<std::uint32_t, std::vector<Version>> snapshots;
  std::unordered_map<Version, int, Hash> holders;
  std::set<std::string> ofThisHour;
  std::int64_t hour = 0;
  std::size_t most = 0, gatherings = 0, gathered = 0;
  int created = 0, days = 0;

  void note(const SnapshotRecord& snapshot, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
      snapshots[snapshot.number].emplace_back(path, files.at(path).version);
      ++holders[snapshots[snapshot.number].back()];
    }
    snapshots[snapshot.number];
  }

  void backUp(bool full, const std::vector<std::string>& stored, std::vector<std::string> confirmed) {
    const SnapshotRecord snapshot = {++number, idOf(number), now, full, ""};
    std::vector<StoredFile> states;
    for (const std::string& path : stored) {
      states.push_back({path, {100, number, number}});
      files[path].version = number;
    }
    store.addSnapshot(snapshot, states, confirmed);
    confirmed.insert(confirmed.end(), stored.begin(), stored.end());
    note(snapshot, confirmed);
  }

  std::string create() {
    living.push_back("/home/folder" + std::to_string(created % 50) + "/" + std::to_string(created));
    ++created;
    return living.back();
  }
  void remove(std::size_t index) {
    const std::string path = std::exchange(living[index], living.back());
    living.pop_back();
    files[path].removed = now;
    ofThisHour.erase(path);
    store.setRemoved(path, true, now);
  }

  // Some files changed, one came, one went, and one that lives for some batches only came.
  void batch() {
    if (retention::hourOf(now) != hour) {
      hour = retention::hourOf(now);
      ofThisHour.clear();
    }
    std::set<std::string> changed;
    for (int count = 0; count < 3; ++count) {
      changed.insert(living[random() % living.size()]);
    }
    if (random() % 2 == 0) {
      changed.insert(create());
      const std::size_t index = random() % (living.size() - 1);
      changed.erase(living[index]);
      std::erase(shortLived, living[index]);
      remove(index);
    }
    if (random() % 3 == 0) {
      shortLived.push_back(create());
      changed.insert(shortLived.back());
    }
    if (shortLived.size() > 2) {
      const auto place = std::find(living.begin(), living.end(), shortLived.front());
      shortLived.erase(shortLived.begin());
      changed.erase(*place);
      remove(static_cast<std::size_t>(place - living.begin()));
    }
    std::vector<std::string> again;
    std::set_difference(ofThisHour.begin(), ofThisHour.end(), changed.begin(), changed.end(),
                        std::back_inserter(again));
    backUp(false, {changed.begin(), changed.end()}, again);
    ofThisHour.insert(changed.begin(), changed.end());
  }

  void gather() {
    std::vector<Version> versions;
    for (const auto& [path, version] : store.gatherable(now, {}, 1 << 30)) {
      versions.emplace_back(path, version.version);
    }
    if (versions.empty()) {
      return;
    }
    ++gatherings;
    gathered += versions.size();
    const SnapshotRecord snapshot = {++number, idOf(number), now, false, "/gathered"};
    store.addGathered(snapshot, versions);
    for (const Version& version : versions) {
      ++holders[version];
    }
    snapshots[number] = versions;
  }

  void forget() {
    most = std::max(most, snapshots.size());
    lastForgetting = number;
    std::vector<std::uint32_t> numbers;
    for (const SnapshotRecord& snapshot : store.forgettable(now, {})) {
      numbers.push_back(snapshot.number);
    }
    store.removeSnapshots(numbers);
    for (const std::uint32_t forgotten : numbers) {
      for (const Version& version : snapshots.at(forgotten)) {
        --holders[version];
      }
      snapshots.erase(forgotten);
    }
    for (auto file = files.begin(); file != files.end();) {
      const bool isHeld = holders[{file->first, file->second.version}] > 0;
      const bool isNeeded =
          file->second.removed == 0 || file->second.removed + Store::Retention().keepDeleted > now;
      ASSERT_TRUE(isHeld || !isNeeded) << file->first << " is lost";
      file = isHeld ? std::next(file) : files.erase(file);
    }
    std::erase_if(holders, [](const auto& row) { return row.second == 0; });
  }

  void compareWithStore() {
    std::size_t index = 0;
    for (const auto& [path, file] : files) {
      if (++index % 5 != 0) {
        continue;
      }
      const std::optional<BackupRecord> record = store.record(path);
      ASSERT_TRUE(record) << path;
      EXPECT_EQ(record->version, file.version) << path;
      EXPECT_EQ(record->removed, file.removed != 0) << path;
      const VersionRecord newest = store.versions(path, 1).at(0);
      const auto holder = std::find_if(snapshots.begin(), snapshots.end(),
                                       [&](const auto& row) { return idOf(row.first) == newest.snapshot; });
      ASSERT_NE(holder, snapshots.end());
      EXPECT_NE(std::find(holder->second.begin(), holder->second.end(), Version(path, file.version)),
                holder->second.end());
    }
    EXPECT_EQ(store.snapshots().size(), snapshots.size());
    EXPECT_EQ(store.totals().files, living.size());
  }

  void workADay(int batchesAnHour) {
    for (int index = 0; index < 8 * batchesAnHour && !HasFatalFailure(); ++index) {
      batch();
      now += kHour / batchesAnHour;
      if (number - lastForgetting >= kWorthForgetting) {
        forget();
      }
    }
    backUp(true, {}, living);
    now += 60;
    if (++days % 3 == 0) {
      gather();
    }
    forget();
  }
};

TEST_F(ThreeYears, SnapshotsStayFewAndNothingIsLost) {
  for (int count = 0; count < 150; ++count) {
    create();
  }
  backUp(true, living, {});
  for (int day = 0; day < kDays && !HasFatalFailure(); ++day) {
    now = kStart + day * kDay + 9 * kHour;
    workADay(day % 30 == 29 ? kBatchesOfABusyHour : kBatchesAnHour);
    EXPECT_LE(most, kMostSnapshots);
    if (day % 91 == 90 || day == kDays - 1) {
      std::printf("day %4d: %zu snapshots, at most %zu so far; %zu versions gathered in %zu runs\n", day + 1,
                  snapshots.size(), most, gathered, gatherings);
      compareWithStore();
    }
  }
}

}  // namespace
}  // namespace keldane
