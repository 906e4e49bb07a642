// What the daemon must not forget, in an SQLite file.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/threads/Mutex.h"

namespace keldane {

/// What was recorded of a file when it was last backed up.
struct BackupRecord {
  std::uint64_t size = 0;     ///< bytes
  std::int64_t modified = 0;  ///< nanoseconds since the UNIX epoch
  double date = 0;            ///< of the backup, seconds since the UNIX epoch
  std::string digest;         ///< SHA-256, hexadecimal
  std::uint32_t version = 0;  ///< how many times the file was backed up
};

/// Rules, settings and records. Every change is on its way to the file when an operation returns: the
/// write-ahead log keeps it through the death of this process. Throws SQLite::Exception when the file cannot
/// be used. Any thread; one mutex guards the connection.
class Store {
 public:
  /// Opens or makes the file, readable to its owner alone. A symbolic link, and a file of another user, is
  /// not used.
  explicit Store(const std::string& file);

  /// Whether a path is included, by path.
  std::map<std::string, bool> rules();
  void setRule(const std::string& path, bool included);
  void removeRule(const std::string& path);

  /// The toggle of a file type, by type.
  std::map<std::string, std::uint32_t> types();
  void setType(const std::string& type, std::uint32_t toggle);

  /// When a path was given priority, as a growing number, by path.
  std::map<std::string, std::int64_t> priorities();
  void addPriority(const std::string& path);
  void removePriority(const std::string& path);

  /// Settings of the daemon itself and profile values of its clients are kept apart by `table`.
  enum class Table { settings, profile };
  std::optional<std::string> value(Table table, const std::string& key);
  void setValue(Table table, const std::string& key, const std::string& value);

  std::optional<BackupRecord> record(const std::string& path);
  /// The records of a folder's direct children, by path.
  std::map<std::string, BackupRecord> recordsIn(const std::string& folder);
  /// Keeps a record; the version goes up by itself.
  void setRecord(const std::string& path, const BackupRecord& record);
  struct Totals {
    std::uint64_t files = 0, bytes = 0;
  };
  Totals totals();

 private:
  template <class... Values>
  void execute(const char* sql, const Values&... values);

  Mutex mutex_{{.name = "Store.mutex"}};
  SQLite::Database database_ KELDANE_GUARDED_BY(mutex_);
  // Kept, because to make it takes longer than to ask it, and a menu asks four times a file.
  std::optional<SQLite::Statement> recordQuery_ KELDANE_GUARDED_BY(mutex_);
};

}  // namespace keldane
