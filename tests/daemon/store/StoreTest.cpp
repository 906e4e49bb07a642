#include "daemon/store/Store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <limits>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

TEST(Store, KeepsEverythingAcrossALife) {
  const TemporaryFolder folder;
  {
    Store store(folder / "s");
    store.setRule("/a", true);
    store.setRule("/b", false);
    store.removeRule("/b");
    store.setType(".txt", 7);
    store.addPriority("/p");
    store.addPriority("/q");
    store.addPriority("/p");
    store.removePriority("/q");
    store.setValue(Store::Table::settings, "k", "setting");
    store.setValue(Store::Table::profile, "k", "profile");
  }
  Store store(folder / "s");
  EXPECT_EQ(store.rules(), (std::map<std::string, bool>{{"/a", true}}));
  EXPECT_EQ(store.types(), (std::map<std::string, std::uint32_t>{{".txt", 7}}));
  EXPECT_EQ(store.priorities().size(), 1U);
  EXPECT_EQ(store.value(Store::Table::settings, "k"), "setting");
  EXPECT_EQ(store.value(Store::Table::profile, "k"), "profile");
  EXPECT_EQ(store.value(Store::Table::profile, "none"), std::nullopt);
  EXPECT_EQ(store.values(Store::Table::profile), (std::map<std::string, std::string>{{"k", "profile"}}));
}

TEST(Store, AnswersWithWhatAnAdministratorWants) {
  const TemporaryFolder folder;
  {
    Store store(folder / "s");
    store.setValue(Store::Table::settings, "fixed", "own");
    store.administer(Store::Table::settings, "fixed", "theirs", true);
    store.administer(Store::Table::settings, "default", "theirs", false);
    EXPECT_EQ(store.value(Store::Table::settings, "fixed"), "theirs");
    EXPECT_EQ(store.value(Store::Table::settings, "default"), "theirs");
    EXPECT_EQ(store.value(Store::Table::profile, "default"), std::nullopt) << "another table";
    store.setValue(Store::Table::settings, "fixed", "another");
    store.setValue(Store::Table::settings, "default", "own");
    EXPECT_EQ(store.value(Store::Table::settings, "fixed"), "theirs");
    EXPECT_EQ(store.value(Store::Table::settings, "default"), "own");
    EXPECT_TRUE(store.isFixed(Store::Table::settings, "fixed"));
    EXPECT_FALSE(store.isFixed(Store::Table::settings, "default"));
  }
  EXPECT_EQ(Store(folder / "s").value(Store::Table::settings, "fixed"), "own") << "what the user set is kept";
}

// A file of the first format.
void makeOldFile(const std::string& path) {
  SQLite::Database database(path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
  database.exec(R"(PRAGMA journal_mode=WAL;
CREATE TABLE rules(path TEXT PRIMARY KEY, included INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE types(type TEXT PRIMARY KEY, toggle INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE priorities(path TEXT UNIQUE NOT NULL, sequence INTEGER PRIMARY KEY AUTOINCREMENT);
CREATE TABLE settings(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE profile(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE records(path TEXT PRIMARY KEY, folder TEXT NOT NULL, size INTEGER NOT NULL, modified INTEGER NOT NULL,
  date REAL NOT NULL, digest TEXT NOT NULL, version INTEGER NOT NULL) WITHOUT ROWID;
CREATE INDEX records_by_folder ON records(folder);
INSERT INTO rules VALUES('/home', 1);
INSERT INTO types VALUES('.tmp', 2);
INSERT INTO priorities(path) VALUES('/home/a');
INSERT INTO settings VALUES('k', 's');
INSERT INTO profile VALUES('k', 'p');
INSERT INTO records VALUES('/home/a', '/home', 1, 2, 3, 'd', 1);)");
}

TEST(Store, AnOldFileKeepsItsRulesAndLosesItsRecords) {
  const TemporaryFolder folder;
  makeOldFile(folder / "s");
  for (int life = 0; life < 2; ++life) {
    Store store(folder / "s");
    EXPECT_EQ(store.rules(), (std::map<std::string, bool>{{"/home", true}}));
    EXPECT_EQ(store.types().at(".tmp"), 2U);
    EXPECT_EQ(store.priorities().size(), 1U);
    EXPECT_EQ(store.value(Store::Table::settings, "k"), "s");
    EXPECT_EQ(store.value(Store::Table::profile, "k"), "p");
    EXPECT_FALSE(store.record("/home/a"));
    EXPECT_EQ(store.totals().files, 0U);
  }
  SQLite::Database database(folder / "s", SQLite::OPEN_READONLY);
  EXPECT_FALSE(database.tableExists("records"));
}

// A file of the second format, after two files of 8 EiB had been stored and removed.
void makeFileOfSecondFormat(const std::string& path) {
  { Store store(path); }
  SQLite::Database database(path, SQLite::OPEN_READWRITE);
  database.exec(R"(DROP TRIGGER file_added; DROP TRIGGER file_dropped; DROP TRIGGER file_changed;
ALTER TABLE counters DROP COLUMN large;
CREATE TRIGGER file_added AFTER INSERT ON files WHEN new.removed IS NULL BEGIN
  UPDATE counters SET files = files + 1, bytes = bytes + new.size; END;
CREATE TRIGGER file_dropped AFTER DELETE ON files WHEN old.removed IS NULL BEGIN
  UPDATE counters SET files = files - 1, bytes = bytes - old.size; END;
CREATE TRIGGER file_changed AFTER UPDATE OF size, removed ON files
  WHEN old.size <> new.size OR (old.removed IS NULL) <> (new.removed IS NULL) BEGIN
  UPDATE counters SET files = files + (new.removed IS NULL) - (old.removed IS NULL),
    bytes = bytes + new.size * (new.removed IS NULL) - old.size * (old.removed IS NULL); END;
INSERT INTO files VALUES('/a', 1, 1, 9223372036854775807, 1, 1, 1, 0, NULL, NULL, NULL);
INSERT INTO files VALUES('/b', 2, 1, 9223372036854775807, 1, 1, 1, 0, NULL, NULL, NULL);
INSERT INTO files VALUES('/c', 3, 1, 1234567890123, 1, 1, 1, 0, NULL, NULL, NULL);
UPDATE files SET removed = 1 WHERE size > 1234567890123;
PRAGMA user_version=2;)");
}

TEST(Store, AFileOfTheSecondFormatKeepsItsRecordsAndIsCountedAnew) {
  const TemporaryFolder folder;
  makeFileOfSecondFormat(folder / "s");
  {
    SQLite::Database database(folder / "s", SQLite::OPEN_READONLY);
    EXPECT_NE(database.execAndGet("SELECT bytes FROM counters").getInt64(), 1234567890123)
        << "it had lost count";
  }
  for (int life = 0; life < 2; ++life) {
    Store store(folder / "s");
    EXPECT_EQ(store.totals().files, 1U);
    EXPECT_EQ(store.totals().bytes, 1234567890123U);
    EXPECT_EQ(store.record("/a")->version, 1U);
  }
  Store store(folder / "s");
  store.setRemoved("/a", false, 0);
  store.setRemoved("/b", false, 0);
  EXPECT_EQ(store.totals().bytes, std::numeric_limits<std::uint64_t>::max());
}

TEST(Store, TellsThatItCannotBeWrittenUntilItCan) {
  const TemporaryFolder folder;
  Store store(folder / "s");
  store.setRule("/a", true);
  EXPECT_EQ(store.trouble(), std::nullopt);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit nothing{0, before.rlim_max};
  for (const bool waitsForItself : {false, true}) {
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &nothing), 0);
    EXPECT_THROW(store.setRule("/b", true), SQLite::Exception);
    const std::optional<std::string> trouble = store.trouble();
    setrlimit(RLIMIT_FSIZE, &before);
    ASSERT_TRUE(trouble);
    EXPECT_NE(trouble->find(folder / "s"), std::string::npos) << *trouble;
    if (waitsForItself) {
      EXPECT_TRUE(testing::eventually([&] { return !store.trouble(); }));
    } else {
      store.setRule("/c", true);
      EXPECT_EQ(store.trouble(), std::nullopt);
    }
  }
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(store.rules().size(), 2U);
}

TEST(Store, AFileOfANewerFormatIsLeftAsItIs) {
  const TemporaryFolder folder;
  {
    SQLite::Database(folder / "s", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("PRAGMA user_version=4");
  }
  const std::string before = testing::readWhole(folder / "s");
  try {
    const Store store(folder / "s");
    ADD_FAILURE() << "it was opened";
  } catch (const SQLite::Exception& exception) {
    EXPECT_STREQ(exception.what(), "it was written by a newer version of this program");
  }
  EXPECT_EQ(testing::readWhole(folder / "s"), before);
}

TEST(Store, IsItsOwnersAlone) {
  const TemporaryFolder folder;
  const Store store(folder / "s");
  struct stat status {};
  ASSERT_EQ(stat((folder / "s").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(Store, SaysWhenItsFileCannotBeUsed) {
  const TemporaryFolder folder;
  EXPECT_THROW(Store(folder / "none/s"), SQLite::Exception);
  EXPECT_THROW(Store(folder.write("s", std::string(4096, 'x'))), SQLite::Exception);
}

TEST(Store, MakesAFileThatOthersCouldReadItsOwnersAlone) {
  const TemporaryFolder folder;
  { const Store store(folder / "s"); }
  ASSERT_EQ(chmod((folder / "s").c_str(), 0644), 0);
  const Store store(folder / "s");
  struct stat status {};
  ASSERT_EQ(stat((folder / "s").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(Store, FollowsNoLinkToItsFile) {
  const TemporaryFolder folder;
  folder.write("precious", "");
  std::filesystem::create_symlink(folder / "precious", folder / "link");
  std::filesystem::create_symlink(folder / "none", folder / "dangling");
  std::filesystem::create_hard_link(folder / "precious", folder / "twin");
  for (const char* name : {"link", "dangling", "twin"}) {
    EXPECT_THROW(Store(folder / name), SQLite::Exception) << name;
  }
  EXPECT_EQ(testing::readWhole(folder / "precious"), "");
  EXPECT_FALSE(std::filesystem::exists(folder / "none"));
  std::filesystem::create_directory_symlink(folder.path(), folder / "here");
  EXPECT_NO_THROW(Store(folder / "here/s")) << "a folder may be reached by a link";
}

TEST(Store, UsesNoFileOfAnotherUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  const TemporaryFolder folder;
  ASSERT_EQ(chown(folder.write("s", "").c_str(), 4123456, 4123456), 0);
  EXPECT_THROW(Store(folder / "s"), SQLite::Exception);
  EXPECT_EQ(testing::readWhole(folder / "s"), "");
}

}  // namespace
}  // namespace keldane
