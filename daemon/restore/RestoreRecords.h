// How a job of restoring is kept in the store.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "daemon/restore/RestoreJobs.h"
#include "daemon/store/Store.h"

namespace keldane {

/// A job, and what must be known of it after a restart of the daemon.
struct RestoreState {
  std::uint32_t number = 0;
  RestoreRequest request;
  RestoreReport report;
  std::vector<bool> isDone;  ///< of each item: it is placed, as far as that is possible

  /// The folder in which items are made whole; empty when there is none.
  std::string staging;
  /// What is in the staging is whole and is being placed: what is still there is not placed yet.
  bool isPlacing = false;
  std::vector<std::uint32_t> portion;  ///< the items that are in the staging
  std::uint64_t portionFiles = 0, portionBytes = 0;

  std::uint64_t itemsToCome = 0;  ///< not planned yet, each of which has a file at least; not kept

  bool isFinished() const {
    return report.status != RestoreStatus::waiting && report.status != RestoreStatus::running;
  }
};

/// Paths are kept as bytes, since they need not be UTF-8.
Store::RestoreRecord recordFrom(const RestoreState& state);
/// Absent when it cannot be read.
std::optional<RestoreState> stateFrom(const Store::RestoreRecord& record);

inline constexpr std::size_t kMostRestoreProblems = 1000;
/// Adds a sentence, as long as there is room.
void addProblem(RestoreReport& report, const std::string& sentence);

}  // namespace keldane
