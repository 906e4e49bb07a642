// Opening the file, and everything but the catalogue: rules, types, priorities, settings and profile.
#include "daemon/store/Store.h"

#include <sqlite3.h>

#include "daemon/store/sql/Schema.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

namespace {

constexpr auto kTryInterval = std::chrono::seconds(2);

}  // namespace

Store::Store(const std::string& file)
    : path_(schema::privateFile(file)),
      database_(path_, SQLite::OPEN_READWRITE | SQLite::OPEN_NOFOLLOW, sql::kBusyMilliseconds),
      reader_(path_, SQLite::OPEN_READONLY | SQLite::OPEN_NOFOLLOW, sql::kBusyMilliseconds) {
  {
    const ScopedLock guard(mutex_);
    schema::prepare(database_);
  }
  finishRemoval();
}

// Runs the work and remembers whether it succeeded.
template <class Work>
void Store::writing(const Work& work) {
  try {
    work();
    hasTrouble_ = false;
  } catch (const SQLite::Exception& error) {
    trouble_ = error.getErrorCode() == SQLITE_FULL
                   ? "No room is left for rules and settings: the disk of " + path_ + " is full."
                   : "Rules and settings cannot be kept in " + path_ + ": " + error.what() + ".";
    hasTrouble_ = true;
    nextTry_ = std::chrono::steady_clock::now() + kTryInterval;
    throw;
  }
}

template <class... Values>
void Store::execute(const char* sql, const Values&... values) {
  const ScopedLock guard(mutex_);
  writing([&]() KELDANE_REQUIRES(mutex_) { sql::runOnce(database_, sql, values...); });
}

std::optional<std::string> Store::trouble() {
  if (!hasTrouble_) {
    return std::nullopt;
  }
  const ScopedLock guard(mutex_);
  if (std::chrono::steady_clock::now() >= nextTry_) {
    try {
      writing(
          [&]() KELDANE_REQUIRES(mutex_) { sql::runOnce(database_, "UPDATE counters SET number = number"); });
    } catch (const SQLite::Exception&) {
      return trouble_;
    }
  }
  return hasTrouble_ ? std::optional(trouble_) : std::nullopt;
}

std::map<std::string, bool> Store::rules() {
  const ScopedLock guard(readMutex_);
  std::map<std::string, bool> rules;
  for (SQLite::Statement row(reader_, "SELECT path, included FROM rules"); row.executeStep();) {
    rules[row.getColumn(0).getString()] = row.getColumn(1).getInt() != 0;
  }
  return rules;
}

void Store::setRule(const std::string& path, bool included) {
  execute("INSERT OR REPLACE INTO rules VALUES(?, ?)", path, included);
}

void Store::removeRule(const std::string& path) { execute("DELETE FROM rules WHERE path = ?", path); }

std::map<std::string, std::uint32_t> Store::types() {
  const ScopedLock guard(readMutex_);
  std::map<std::string, std::uint32_t> types;
  for (SQLite::Statement row(reader_, "SELECT type, toggle FROM types"); row.executeStep();) {
    types[row.getColumn(0).getString()] = row.getColumn(1).getUInt();
  }
  return types;
}

void Store::setType(const std::string& type, std::uint32_t toggle) {
  execute("INSERT OR REPLACE INTO types VALUES(?, ?)", type, toggle);
}

void Store::removeType(const std::string& type) { execute("DELETE FROM types WHERE type = ?", type); }

std::map<std::string, std::int64_t> Store::priorities() {
  const ScopedLock guard(readMutex_);
  std::map<std::string, std::int64_t> priorities;
  for (SQLite::Statement row(reader_, "SELECT path, sequence FROM priorities"); row.executeStep();) {
    priorities[row.getColumn(0).getString()] = row.getColumn(1).getInt64();
  }
  return priorities;
}

void Store::addPriority(const std::string& path) {
  execute("INSERT OR IGNORE INTO priorities(path) VALUES(?)", path);
}

void Store::removePriority(const std::string& path) {
  execute("DELETE FROM priorities WHERE path = ?", path);
}

std::map<std::string, std::uint32_t> Store::marks() {
  const ScopedLock guard(readMutex_);
  std::map<std::string, std::uint32_t> marks;
  for (SQLite::Statement row(reader_, "SELECT path, mark FROM marks"); row.executeStep();) {
    marks[row.getColumn(0).getString()] = row.getColumn(1).getUInt();
  }
  return marks;
}

void Store::setMark(const std::string& path, std::uint32_t mark) {
  if (mark == 0) {
    execute("DELETE FROM marks WHERE path = ?", path);
  } else {
    execute("INSERT OR REPLACE INTO marks VALUES(?, ?)", path, mark);
  }
}

void Store::removeMarks(const std::string& path) {
  const sql::Below below(path);
  execute("DELETE FROM marks WHERE path = ? OR (path >= ? AND path < ?)", path, below.from, below.to);
}

void Store::administer(Table table, const std::string& key, const std::string& value, bool fixed) {
  administered_[{table, key}] = {value, fixed};
}

bool Store::isFixed(Table table, const std::string& key) const {
  const auto found = administered_.find({table, key});
  return found != administered_.end() && found->second.fixed;
}

std::optional<std::string> Store::value(Table table, const std::string& key) {
  const auto administered = administered_.find({table, key});
  if (administered != administered_.end() && administered->second.fixed) {
    return administered->second.value;
  }
  const ScopedLock guard(readMutex_);
  SQLite::Statement row(reader_, table == Table::settings ? "SELECT value FROM settings WHERE key = ?"
                                                          : "SELECT value FROM profile WHERE key = ?");
  row.bind(1, key);
  if (row.executeStep()) {
    return row.getColumn(0).getString();
  }
  return administered != administered_.end() ? std::optional(administered->second.value) : std::nullopt;
}

void Store::setValue(Table table, const std::string& key, const std::string& value) {
  if (isFixed(table, key)) {
    return;
  }
  execute(table == Table::settings ? "INSERT OR REPLACE INTO settings VALUES(?, ?)"
                                   : "INSERT OR REPLACE INTO profile VALUES(?, ?)",
          key, value);
}

std::map<std::string, std::string> Store::values(Table table) {
  const ScopedLock guard(readMutex_);
  std::map<std::string, std::string> values;
  SQLite::Statement row(reader_, table == Table::settings ? "SELECT key, value FROM settings"
                                                          : "SELECT key, value FROM profile");
  while (row.executeStep()) {
    values[row.getColumn(0).getString()] = row.getColumn(1).getString();
  }
  return values;
}

}  // namespace keldane
