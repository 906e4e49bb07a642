// Records the contents of one snapshot in the catalogue.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <optional>
#include <string>

#include "daemon/store/Store.h"
#include "daemon/store/sql/Sql.h"

namespace keldane {

/// Records versions and which of them a snapshot holds. The snapshot's own row exists already. An object is
/// made for one snapshot; the caller holds the connection's mutex and a transaction during each call.
class SnapshotNotes {
 public:
  SnapshotNotes(SQLite::Database& database, const SnapshotRecord& snapshot);

  /// Called at the beginning of each transaction, because others may have written since the last one.
  void begin();
  /// Records that the snapshot holds a version of a file. A version that is not known yet is added. With
  /// `isThere`, a removal that was recorded before the snapshot's time is cancelled.
  void note(const std::string& path, const FileState& state, std::uint32_t version, double date,
            bool isThere);
  /// Records that the snapshot holds the newest version of a file up to its own number. Without such a
  /// version it does nothing.
  void confirm(const std::string& path);
  /// Records that the snapshot holds that version of a file. It does nothing when the version is not known.
  void confirm(const std::string& path, std::uint32_t version);
  void clearFailure(const std::string& path);

 private:
  struct Row {
    std::int64_t file = 0;
    std::int64_t version = 0;
    std::optional<std::int64_t> firstFull, lastFull;
  };
  /// The table that holds the interval of a version.
  enum class Place { files, versions };

  std::optional<Row> newest(const std::string& path);
  std::optional<Row> older(std::int64_t file, std::uint32_t version);
  std::optional<Row> newestUpTo(std::int64_t file, std::uint32_t version);
  void add(const std::string& path, const FileState& state, std::uint32_t version, double date);
  void hold(const Row& row, Place place);
  void extend(const Row& row, Place place);
  bool fullBetween(std::int64_t first, std::int64_t last);
  bool isInSpan(const Row& row);
  void setInterval(const Row& row, Place place, std::int64_t first, std::int64_t last);

  const SnapshotRecord snapshot_;
  const std::optional<std::int64_t> full_;  // its number, if it is full
  std::int64_t previousFull_ = 0;           // before this snapshot
  std::int64_t nextFile_ = 0;
  bool hasFailures_ = false;

  sql::KeptStatement state_, newest_, older_, newestUpTo_;
  sql::KeptStatement insert_, keepOlder_, replace_, insertOlder_;
  sql::KeptStatement hold_, extendAtEnd_, fullBetween_, inSpan_, addSpan_, setNewest_, setOlder_;
  sql::KeptStatement isThere_, clearFailure_;
};

}  // namespace keldane
