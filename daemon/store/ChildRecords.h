// Reads the records of one folder after another, for a walk through many folders.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/store/Store.h"

namespace keldane {

/// Reads the records of folders' direct children over a connection of its own, so that no question to the
/// store waits for it. It sees what is written up to the call. Used by one thread at a time.
class ChildRecords {
 public:
  explicit ChildRecords(const Store& store);

  /// Called with the name and the record of each child that is a file, in the order of the bytes.
  using OnFile = std::function<void(std::string_view name, const BackupRecord& record)>;
  /// Called with the name of each child that has records below it, once.
  using OnFolder = std::function<void(std::string_view name)>;
  void visit(const std::string& folder, const OnFile& onFile, const OnFolder& onFolder);

 private:
  SQLite::Database database_;
  std::optional<SQLite::Statement> query_;  // kept, because preparing it takes longer than running it
};

}  // namespace keldane
