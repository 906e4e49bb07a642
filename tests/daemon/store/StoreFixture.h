// A store for one test, and short functions to fill it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "daemon/store/Store.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

inline constexpr double kHour = 3600, kDay = 24 * kHour;  // seconds

/// Its snapshot number n has the time 1000 n seconds, and each file that it stores is n bytes long.
class StoreFixture : public ::testing::Test {
 protected:
  static SnapshotRecord snapshot(std::uint32_t number, bool full) {
    return {number, idOf(number), 1000.0 * number, full, ""};
  }
  /// An id of 64 digits that begins differently for each number.
  static std::string idOf(std::uint32_t number) {
    std::string digits = std::to_string(number + 10000000);
    return digits + std::string(64 - digits.size(), 'a');
  }
  void add(std::uint32_t number, bool full, const std::vector<std::string>& stored,
           const std::vector<std::string>& confirmed = {}) {
    std::vector<StoredFile> files;
    for (const std::string& path : stored) {
      files.push_back({path, {number, number * 10, number * 100}});
    }
    store.addSnapshot(snapshot(number, full), files, confirmed);
  }
  void addPartial(std::uint32_t number, const std::vector<std::string>& stored,
                  const std::vector<std::string>& confirmed = {}) {
    add(number, false, stored, confirmed);
  }
  void addFull(std::uint32_t number, const std::vector<std::string>& stored,
               const std::vector<std::string>& confirmed = {}) {
    add(number, true, stored, confirmed);
  }
  /// The numbers of a file's versions, such as "3 1".
  std::string versionsOf(const std::string& path) {
    std::string text;
    for (const VersionRecord& version : store.versions(path)) {
      text += (text.empty() ? "" : " ") + std::to_string(version.version);
    }
    return text;
  }
  /// Paths with their versions as of a backup, such as "/a:3 /b:1".
  std::string stateOf(const std::string& path, std::uint32_t number = 0, double before = 0) {
    std::string text;
    for (const auto& [file, version] : store.versionsBelow(path, number, before)) {
      text += (text.empty() ? "" : " ") + file + ":" + std::to_string(version.version);
    }
    return text;
  }

  const TemporaryFolder folder;
  Store store{folder / "s"};
};

}  // namespace keldane::testing
