// Small helpers for the files of the store: binding values, resetting statements, ranges of paths.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>

#include "daemon/store/Store.h"

namespace keldane::sql {

/// The number of rows that are written or read while a mutex is held.
inline constexpr std::size_t kSlice = 500;
inline constexpr int kBusyMilliseconds = 5000;

/// Called between two slices. A thread that waits for the mutex is woken when the mutex is released. Without
/// this pause the thread that has just released it would always take it again first.
inline void letOthersIn() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }

/// A connection of its own for a long query. It sees one state while a transaction lasts, and nobody has to
/// wait for it.
class LongQuestion {
 public:
  explicit LongQuestion(const std::string& path)
      : database_(path, SQLite::OPEN_READONLY | SQLite::OPEN_NOFOLLOW, kBusyMilliseconds),
        transaction_(database_) {}
  SQLite::Database& database() { return database_; }

 private:
  SQLite::Database database_;
  SQLite::Transaction transaction_;
};

/// Resets a kept query at the end of the scope. Otherwise it would hold on to the state that it reads.
class Rewinding {
 public:
  explicit Rewinding(SQLite::Statement& statement) : statement_(statement) {}
  ~Rewinding() { statement_.tryReset(); }
  Rewinding(const Rewinding&) = delete;
  Rewinding& operator=(const Rewinding&) = delete;

 private:
  SQLite::Statement& statement_;
};

/// A statement that is prepared at its first use and kept, because preparing takes longer than most uses.
class KeptStatement {
 public:
  KeptStatement(SQLite::Database& database, const char* text) : database_(database), text_(text) {}
  SQLite::Statement& get() { return statement_ ? *statement_ : statement_.emplace(database_, text_); }

 private:
  SQLite::Database& database_;
  const char* const text_;
  std::optional<SQLite::Statement> statement_;
};

template <class Value>
void bindAt(SQLite::Statement& statement, int index, const Value& value) {
  if constexpr (std::is_same_v<Value, bool>) {
    statement.bind(index, value ? 1 : 0);
  } else if constexpr (std::is_same_v<Value, std::uint64_t>) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
    statement.bind(index, static_cast<std::int64_t>(std::min(value, kMost)));
  } else if constexpr (requires { value.has_value(); }) {
    value ? bindAt(statement, index, *value) : statement.bind(index);
  } else {
    statement.bind(index, value);
  }
}

/// Binds all parameters, from the first one on.
template <class... Values>
SQLite::Statement& bindAll(SQLite::Statement& statement, const Values&... values) {
  int index = 0;
  (bindAt(statement, ++index, values), ...);
  return statement;
}

/// Runs a statement, which can be run again, and returns the number of rows that it changed.
template <class... Values>
int run(SQLite::Statement& statement, const Values&... values) {
  const Rewinding rewinding(statement);
  return bindAll(statement, values...).exec();
}
template <class... Values>
int run(KeptStatement& statement, const Values&... values) {
  return run(statement.get(), values...);
}

/// Prepares a statement, runs it once, and does not keep it.
template <class... Values>
int runOnce(SQLite::Database& database, const char* text, const Values&... values) {
  SQLite::Statement statement(database, text);
  return bindAll(statement, values...).exec();
}

/// The number in the first column of the only row; 0 where that is NULL or where there is no row.
template <class... Values>
std::int64_t numberOf(SQLite::Database& database, const char* text, const Values&... values) {
  SQLite::Statement statement(database, text);
  return bindAll(statement, values...).executeStep() ? statement.getColumn(0).getInt64() : 0;
}

inline std::optional<std::int64_t> optionalAt(SQLite::Statement& row, int column) {
  const SQLite::Column value = row.getColumn(column);
  return value.isNull() ? std::nullopt : std::optional<std::int64_t>(value.getInt64());
}

/// Reads size, modified and changed from three columns.
inline FileState stateAt(SQLite::Statement& row, int column) {
  return {static_cast<std::uint64_t>(row.getColumn(column).getInt64()), row.getColumn(column + 1).getInt64(),
          row.getColumn(column + 2).getInt64()};
}

/// Reads version, size, modified, changed, date, damaged and whether it was removed from seven columns.
inline BackupRecord recordAt(SQLite::Statement& row, int column) {
  BackupRecord record;
  static_cast<FileState&>(record) = stateAt(row, column + 1);
  record.version = row.getColumn(column).getUInt();
  record.date = row.getColumn(column + 4).getDouble();
  record.damaged = row.getColumn(column + 5).getInt() != 0;
  record.removed = row.getColumn(column + 6).getInt() != 0;
  return record;
}

/// The paths below a folder: those from `from` on, inclusive, up to `to`, exclusive. Bytes are compared, and
/// '0' is the byte after '/'.
struct Below {
  explicit Below(const std::string& folder) : from(folder == "/" ? "/" : folder + "/"), to(from) {
    to.back() = '0';
  }
  std::string from, to;
};

}  // namespace keldane::sql
