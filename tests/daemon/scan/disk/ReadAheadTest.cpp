#include "daemon/scan/disk/ReadAhead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace keldane {
namespace {

std::vector<std::string> names(int count) {
  std::vector<std::string> names;
  for (int name = 0; name < count; ++name) {
    names.push_back(std::to_string(name));
  }
  return names;
}

/// All folders that are read, until nothing is left.
std::vector<std::string> all(ReadAhead& ahead, std::vector<std::string> folders) {
  std::vector<std::string> read;
  while (!folders.empty() || !ahead.isIdle()) {
    ahead.take(folders);
    for (const FolderRead& folder : ahead.next(folders)) {
      read.push_back(folder.path);
    }
  }
  return read;
}

TEST(ReadAheadTest, ReadsEachFolderOnceFromTheEndOfTheList) {
  ReadAhead ahead([](FolderRead& folder) { folder.error = std::stoi(folder.path); });
  std::vector<std::string> folders = names(100);
  const std::vector<std::string> wanted(folders.rbegin(), folders.rend());
  EXPECT_EQ(all(ahead, folders), wanted);
  EXPECT_TRUE(ahead.isIdle());
}

TEST(ReadAheadTest, WorksOnWhileTheCallerHasABatch) {
  std::atomic<int> read = 0;
  ReadAhead ahead([&](FolderRead&) { ++read; });
  std::vector<std::string> folders = names(100);
  ahead.take(folders);
  const auto first = ahead.next(folders);
  EXPECT_EQ(first.size(), ReadAhead::kFolders);
  ahead.take(folders);
  EXPECT_EQ(folders.size(), 100 - 3 * ReadAhead::kFolders) << "no more than three batches are taken";
  const std::string kept = first.front().path;
  while (read < static_cast<int>(3 * ReadAhead::kFolders)) {
    std::this_thread::yield();
  }
  EXPECT_EQ(first.front().path, kept) << "the caller's batch stays as it is";
}

TEST(ReadAheadTest, AFolderThatThrowsIsTheOnlyOneThatIsLost) {
  ReadAhead ahead([](FolderRead& folder) {
    if (folder.path == "90" || folder.path == "50") {
      throw std::runtime_error(folder.path);
    }
  });
  std::vector<std::string> folders = names(100);
  std::vector<std::string> read, thrown;
  while (!folders.empty() || !ahead.isIdle()) {
    ahead.take(folders);
    try {
      for (const FolderRead& folder : ahead.next(folders)) {
        read.push_back(folder.path);
      }
    } catch (const std::runtime_error& error) {
      thrown.emplace_back(error.what());
    }
  }
  EXPECT_EQ(read.size(), 98U);
  EXPECT_EQ(thrown.size(), 2U);
}

TEST(ReadAheadTest, EndsWhileBatchesWait) {
  ReadAhead ahead([](FolderRead&) {});
  std::vector<std::string> folders = names(100);
  ahead.take(folders);
}

}  // namespace
}  // namespace keldane
