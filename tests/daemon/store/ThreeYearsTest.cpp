// Simulates three years of work, to check that the number of snapshots stays bounded and that nothing is lost
// that must be kept. Only the storage program is left out; the store is the real one.
#include <algorithm>
#include <cstdio>
#include <random>
#include <unordered_map>

#include "daemon/store/snapshots/Retention.h"
#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

using testing::kDay;
using testing::kHour;

constexpr double kStart = 1'700'000'000 - 1'700'000'000 % 86400;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(NDEBUG)
constexpr int kDays = 200;  // an instrumented build is too slow for more
#else
constexpr int kDays = 3 * 365;
#endif
constexpr std::size_t kFiles = 150;
constexpr int kBatchesAnHour = 2;
constexpr int kBatchesOfABusyHour = 30;  // on one day of sixty
constexpr std::size_t kMostSnapshots = 400;
constexpr std::uint32_t kWorthForgetting = 40;

class ThreeYears : public testing::StoreFixture {
 protected:
  struct File {
    std::uint32_t version = 0;  // the newest one
    double removed = 0;         // 0: it is there
  };
  // A file is an index here, from which its path is made.
  using Version = std::uint64_t;
  static Version versionOf(std::size_t file, std::uint32_t version) {
    return std::uint64_t{file} << 32 | version;
  }
  static std::string pathOf(std::size_t file) {
    return "/home/folder" + std::to_string(file % 50) + "/" + std::to_string(file);
  }
  static std::vector<std::string> pathsOf(const std::vector<std::size_t>& files) {
    std::vector<std::string> paths;
    for (const std::size_t file : files) {
      paths.push_back(pathOf(file));
    }
    return paths;
  }

  std::mt19937 random{42};
  std::uint32_t number = 0, lastForgetting = 0;
  double now = kStart;
  std::vector<File> files;
  std::vector<std::size_t> living, shortLived;
  std::map<std::uint32_t, std::vector<Version>> snapshots;
  std::unordered_map<Version, int> holders;  // the number of snapshots that hold it
  std::set<std::size_t> ofThisHour;
  std::int64_t hour = 0;
  std::size_t most = 0, gatherings = 0, gathered = 0;
  int days = 0;

  void note(std::uint32_t snapshot, std::vector<Version> versions) {
    for (const Version version : versions) {
      ++holders[version];
    }
    snapshots.emplace(snapshot, std::move(versions));
  }

  void backUp(bool full, const std::vector<std::size_t>& stored, const std::vector<std::size_t>& confirmed) {
    const SnapshotRecord snapshot = {++number, idOf(number), now, full, ""};
    std::vector<StoredFile> states;
    std::vector<Version> versions;
    for (const std::size_t file : stored) {
      states.push_back({pathOf(file), {100, number, number}});
      files[file].version = number;
      versions.push_back(versionOf(file, number));
    }
    for (const std::size_t file : confirmed) {
      versions.push_back(versionOf(file, files[file].version));
    }
    store.addSnapshot(snapshot, states, pathsOf(confirmed));
    note(number, std::move(versions));
  }

  std::size_t create() {
    files.emplace_back();
    living.push_back(files.size() - 1);
    return living.back();
  }
  void remove(std::size_t file) {
    std::erase(living, file);
    std::erase(shortLived, file);
    files[file].removed = now;
    ofThisHour.erase(file);
    store.setRemoved(pathOf(file), true, now);
  }

  // Some files change, one may be created and one removed, and one may be created that lives for a few
  // batches only.
  void batch() {
    if (retention::hourOf(now) != hour) {
      hour = retention::hourOf(now);
      ofThisHour.clear();
    }
    if (random() % 2 == 0) {
      remove(living[random() % living.size()]);
    }
    if (shortLived.size() > 2) {
      remove(shortLived.front());
    }
    std::set<std::size_t> changed;
    for (int count = 0; count < 3; ++count) {
      changed.insert(living[random() % living.size()]);
    }
    if (living.size() < kFiles) {
      changed.insert(create());
    }
    if (random() % 3 == 0) {
      shortLived.push_back(create());
      changed.insert(shortLived.back());
    }
    std::vector<std::size_t> again;
    std::set_difference(ofThisHour.begin(), ofThisHour.end(), changed.begin(), changed.end(),
                        std::back_inserter(again));
    backUp(false, {changed.begin(), changed.end()}, again);
    ofThisHour.insert(changed.begin(), changed.end());
  }

  void gather() {
    std::vector<std::pair<std::string, std::uint32_t>> found;
    std::vector<Version> versions;
    for (const auto& [path, version] : store.gatherable(now, {}, 1 << 30)) {
      found.emplace_back(path, version.version);
      versions.push_back(versionOf(std::stoul(path.substr(path.rfind('/') + 1)), version.version));
    }
    if (!found.empty()) {
      ++gatherings;
      gathered += found.size();
      ++number;
      store.addGathered({number, idOf(number), now, false, "/gathered"}, found);
      note(number, std::move(versions));
    }
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
      for (const Version version : snapshots.at(forgotten)) {
        if (--holders[version] == 0) {
          holders.erase(version);
          const File& file = files[version >> 32];
          const bool isNewest = versionOf(version >> 32, file.version) == version;
          const bool hasTime = file.removed == 0 || file.removed + Store::Retention().keepDeleted > now;
          ASSERT_FALSE(isNewest && hasTime) << pathOf(version >> 32) << " is lost";
        }
      }
      snapshots.erase(forgotten);
    }
  }

  void compareWithStore() {
    for (std::size_t index = random() % 5; index < files.size(); index += 5) {
      const File& file = files[index];
      const std::optional<BackupRecord> record = store.record(pathOf(index));
      const Version version = versionOf(index, file.version);
      ASSERT_EQ(record && record->version == file.version, holders.contains(version)) << pathOf(index);
      if (!holders.contains(version)) {
        continue;
      }
      EXPECT_EQ(record->removed, file.removed != 0);
      const std::string holder = store.versions(pathOf(index), 1).at(0).snapshot;
      const auto snapshot = std::find_if(snapshots.begin(), snapshots.end(),
                                         [&](const auto& row) { return idOf(row.first) == holder; });
      ASSERT_NE(snapshot, snapshots.end());
      EXPECT_NE(std::find(snapshot->second.begin(), snapshot->second.end(), version), snapshot->second.end());
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
  for (std::size_t count = 0; count < kFiles; ++count) {
    create();
  }
  backUp(true, living, {});
  for (int day = 0; day < kDays && !HasFatalFailure(); ++day) {
    now = kStart + day * kDay + 9 * kHour;
    workADay(day % 60 == 59 ? kBatchesOfABusyHour : kBatchesAnHour);
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
