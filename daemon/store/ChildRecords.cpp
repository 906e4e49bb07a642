#include "daemon/store/ChildRecords.h"

#include "daemon/store/sql/Sql.h"

namespace keldane {

ChildRecords::ChildRecords(const Store& store)
    : database_(store.path(), SQLite::OPEN_READONLY | SQLite::OPEN_NOFOLLOW, sql::kBusyMilliseconds) {}

// The records below a subfolder are skipped, so the time depends on the number of direct children only.
void ChildRecords::visit(const std::string& folder, const OnFile& onFile, const OnFolder& onFolder) {
  if (!query_) {
    query_.emplace(database_,
                   "SELECT path, version, size, modified, changed, date, damaged, removed IS NOT NULL"
                   " FROM files WHERE path >= ? AND path < ? ORDER BY path");
  }
  SQLite::Statement& row = *query_;
  const sql::Rewinding rewinding(row);
  const sql::Below below(folder);
  sql::bindAll(row, below.from, below.to);
  while (row.executeStep()) {
    const SQLite::Column column = row.getColumn(0);
    std::string_view name(column.getText(), static_cast<std::size_t>(column.getBytes()));
    name.remove_prefix(below.from.size());
    const std::size_t slash = name.find('/');
    if (slash == std::string_view::npos) {
      onFile(name, sql::recordAt(row, 1));
      continue;
    }
    name = name.substr(0, slash);
    const std::string next = std::string(below.from).append(name) + '0';  // '0' comes after '/'
    onFolder(name);
    row.reset();
    sql::bindAll(row, next, below.to);
  }
}

}  // namespace keldane
