// Kills a writing process and checks the file that it leaves.
#include <SQLiteCpp/SQLiteCpp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/daemon/store/StoreFixture.h"

namespace keldane {
namespace {

/// Writes and removes snapshots until it is killed, and reports each to the pipe.
[[noreturn]] void writeUntilKilled(const std::string& file, int pipe) {
  Store store(file);
  std::vector<StoredFile> stored;
  std::vector<std::string> confirmed;
  for (int index = 0; index < 1300; ++index) {
    confirmed.push_back("/d/" + std::to_string(index));
    stored.push_back({confirmed.back(), {1, 1, 1}});
  }
  for (std::uint32_t number = store.highestNumber() + 1;; ++number) {
    const SnapshotRecord snapshot = {number, "", 1.0 * number, number % 3 == 0, ""};
    store.addSnapshot(snapshot, number % 2 == 0 ? stored : std::vector<StoredFile>(),
                      number % 2 == 0 ? std::vector<std::string>() : confirmed);
    if (number % 5 == 0) {
      store.removeSnapshots({number - 1, number - 2, number - 5});
    }
    static_cast<void>(!write(pipe, "x", 1));
  }
}

int countOf(SQLite::Database& database, const char* query) { return database.execAndGet(query).getInt(); }

TEST(StoreKill, AKilledWriterLeavesNoVersionThatNoSnapshotHolds) {
  const testing::TemporaryFolder folder;
  for (int round = 0; round < 12; ++round) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      close(ends[0]);
      writeUntilKilled(folder / "s", ends[1]);
    }
    close(ends[1]);
    char byte = 0;
    for (int count = 0; count < 2 + round % 4; ++count) {
      ASSERT_EQ(read(ends[0], &byte, 1), 1);
    }
    usleep(static_cast<useconds_t>(round) * 700);  // a moment within the next change
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ends[0]);

    Store store(folder / "s");
    SQLite::Database database(folder / "s", SQLite::OPEN_READONLY, 5000);
    EXPECT_EQ(
        countOf(database,
                "WITH every(file, version, first, last) AS (SELECT id, version, first_full, last_full FROM"
                " files UNION ALL SELECT file, version, first_full, last_full FROM versions)"
                " SELECT COUNT(*) FROM every e WHERE NOT EXISTS(SELECT 1 FROM held h WHERE h.file = e.file"
                " AND h.version = e.version) AND NOT EXISTS(SELECT 1 FROM snapshots WHERE full AND number"
                " BETWEEN e.first AND e.last) AND NOT EXISTS(SELECT 1 FROM spans s, snapshots n WHERE n.full"
                " AND s.file = e.file AND s.version = e.version AND n.number BETWEEN s.first AND s.last)"),
        0);
    EXPECT_EQ(
        countOf(database, "SELECT COUNT(*) FROM held WHERE snapshot NOT IN (SELECT number FROM snapshots)"),
        0);
    EXPECT_EQ(countOf(database, "SELECT COUNT(*) FROM versions WHERE file NOT IN (SELECT id FROM files)"), 0);
    EXPECT_EQ(countOf(database, "SELECT COUNT(*) FROM leaving"), 0);
    EXPECT_EQ(store.totals().files, static_cast<std::uint64_t>(countOf(
                                        database, "SELECT COUNT(*) FROM files WHERE removed IS NULL")));
  }
}

}  // namespace
}  // namespace keldane
