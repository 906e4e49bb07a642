// Compares the store with a simple model, over random snapshots that are added, removed and recorded again.
#include <algorithm>
#include <random>
#include <set>
#include <thread>

#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

class StoreModel : public testing::StoreFixture {
 protected:
  /// The content of each snapshot: versions by path.
  std::map<std::uint32_t, std::map<std::string, std::uint32_t>> model;
  std::map<std::uint32_t, bool> isFull;
  std::mt19937 random{20240229};
  std::map<std::string, std::uint32_t> newest;

  bool chance(unsigned percent) { return random() % 100 < percent; }

  void addRandom(std::uint32_t number) {
    const bool full = isFull[number] = chance(50);
    std::vector<std::string> stored, confirmed;
    for (int file = 0; file < 12; ++file) {
      const std::string path = "/f" + std::to_string(file);
      if (chance(full ? 15 : 10) || (full && !newest.contains(path))) {
        stored.push_back(path);
        newest[path] = number;
      } else if (newest.contains(path) && chance(full ? 80 : 20)) {
        confirmed.push_back(path);
      } else {
        continue;
      }
      model[number][path] = newest[path];
    }
    model[number];
    add(number, full, stored, confirmed);
  }

  void forgetRandom() {
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, held] : model) {
      if (chance(15)) {
        numbers.push_back(number);
      }
    }
    store.removeSnapshots(numbers);
    for (const std::uint32_t number : numbers) {
      model.erase(number);
    }
    newest.clear();
    for (const auto& [number, held] : model) {
      for (const auto& [path, version] : held) {
        newest[path] = std::max(newest[path], version);
      }
    }
  }

  void compare() {
    std::map<std::string, std::set<std::uint32_t>> versions;
    for (const auto& [number, held] : model) {
      for (const auto& [path, version] : held) {
        versions[path].insert(version);
      }
    }
    std::uint64_t bytes = 0;
    for (int file = 0; file < 12; ++file) {
      const std::string path = "/f" + std::to_string(file);
      std::set<std::uint32_t> found;
      for (const VersionRecord& version : store.versions(path)) {
        found.insert(version.version);
        const auto holder = std::find_if(
            model.begin(), model.end(), [&](const auto& row) { return idOf(row.first) == version.snapshot; });
        ASSERT_NE(holder, model.end());
        EXPECT_EQ(holder->second[path], version.version) << path << " in " << holder->first;
        EXPECT_EQ(version.size, version.version);
        EXPECT_EQ(version.date, 1000.0 * version.version);
      }
      ASSERT_EQ(found, versions[path]) << path;
      const std::optional<BackupRecord> record = store.record(path);
      ASSERT_EQ(record.has_value(), !found.empty());
      if (record) {
        EXPECT_EQ(record->version, *found.rbegin());
        bytes += record->size;
      }
    }
    EXPECT_EQ(store.totals().bytes, bytes);
  }
};

TEST_F(StoreModel, KnowsExactlyWhoHoldsWhat) {
  for (std::uint32_t number = 1; number <= 300; ++number) {
    addRandom(number);
    if (chance(30)) {
      forgetRandom();
    }
    compare();
    if (HasFailure()) {
      FAIL() << "at " << number;
    }
  }
}

TEST_F(StoreModel, KnowsTheSameWhenSnapshotsAreToldOfInAnyOrder) {
  for (int round = 0; round < 40; ++round) {
    store.clearCatalogue();
    model.clear();
    newest.clear();
    for (std::uint32_t number = 1; number <= 25; ++number) {
      addRandom(number);
    }
    if (round % 3 != 0) {
      store.clearCatalogue();
    }
    std::vector<std::uint32_t> order;
    for (const auto& [number, held] : model) {
      order.push_back(number);
    }
    if (round % 4 == 0) {
      std::reverse(order.begin(), order.end());
    } else if (round % 4 > 1) {
      std::shuffle(order.begin(), order.end(), random);
    }
    if (round % 5 == 0) {
      order.insert(order.end(), order.begin(), order.begin() + 5);  // these are recorded again
    }
    for (const std::uint32_t number : order) {
      std::vector<Store::RebuiltVersion> parts[2];
      for (const auto& [path, version] : model[number]) {
        parts[chance(50)].push_back(
            {path, {version, version * 10, version * 100}, version, 1000.0 * version});
      }
      for (const std::vector<Store::RebuiltVersion>& part : parts) {
        store.addRebuilt(snapshot(number, isFull[number]), part);
      }
    }
    compare();
    forgetRandom();
    compare();
    addRandom(26);
    addRandom(27);
    compare();
    if (HasFailure()) {
      FAIL() << "in round " << round;
    }
  }
  EXPECT_EQ(store.highestNumber(), 27U);
}

TEST_F(StoreModel, ThreadsMayDoEverythingAtOnce) {
  std::vector<std::thread> threads;
  std::atomic<bool> isOver = false;
  const auto whileItRuns = [&](const std::function<void()>& work) {
    threads.emplace_back([&isOver, work] {
      while (!isOver) {
        work();
      }
    });
  };
  whileItRuns([&] { store.record("/f1"); });
  whileItRuns([&] { store.versionsBelow("/", 0, 0); });
  whileItRuns([&] { store.forgettable(1e9, {}); });
  whileItRuns([&] { store.setRemoved("/f2", true, 1); });
  whileItRuns([&] { store.setRule("/f3", true); });
  whileItRuns([&] { store.totals(); });
  for (std::uint32_t number = 1; number <= 60; ++number) {
    addRandom(number);
    if (number % 5 == 0) {
      forgetRandom();
    }
  }
  isOver = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  store.setRemoved("/f2", false, 1);
  compare();
}

}  // namespace
}  // namespace keldane
