// Work on the store in short transactions, so that others get their turn between them.
#pragma once

#include <algorithm>

#include "daemon/store/sql/Sql.h"

namespace keldane {

/// Calls `work(database, first, last)` for one part of `count` items after the other, each in a transaction
/// of its own.
template <class Work>
void Store::inSlices(std::size_t count, const Work& work) {
  std::size_t first = 0;
  untilDone([&](SQLite::Database& database) {
    const std::size_t last = std::min(count, first + sql::kSlice);
    work(database, first, last);
    first = last;
    return first == count;
  });
}

/// Calls `work(database)` in one transaction after the other until it returns true.
template <class Work>
void Store::untilDone(const Work& work) {
  for (bool isDone = false; !isDone;) {
    {
      const ScopedLock guard(mutex_);
      SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
      isDone = work(database_);
      transaction.commit();
    }
    if (!isDone) {
      sql::letOthersIn();
    }
  }
}

}  // namespace keldane
