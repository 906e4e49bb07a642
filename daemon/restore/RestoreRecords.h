// The form in which the store keeps a job of restoring.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "daemon/restore/RestoreJobs.h"
#include "daemon/store/Store.h"

namespace keldane {

/// A job with everything that is needed after a restart of the daemon.
struct RestoreState {
  std::uint32_t number = 0;
  RestoreRequest request;
  RestoreReport report;
  std::vector<bool> isDone;  ///< for each item: whether it was placed, as far as possible

  /// The folder in which items are made whole; empty when there is none.
  std::string staging;
  /// Whether the items in the staging are whole and are being placed. Items that are still there are not
  /// placed yet.
  bool isPlacing = false;
  std::vector<std::uint32_t> portion;  ///< the items that are in the staging
  std::uint64_t portionFiles = 0, portionBytes = 0;

  std::uint64_t itemsToCome = 0;  ///< items that are not planned yet; each has at least one file; not stored

  bool isFinished() const {
    return report.status != RestoreStatus::waiting && report.status != RestoreStatus::running;
  }
};

/// Paths are kept as bytes, since they need not be UTF-8.
Store::RestoreRecord recordFrom(const RestoreState& state);
/// The state in a record; absent when it cannot be read.
std::optional<RestoreState> stateFrom(const Store::RestoreRecord& record);

inline constexpr std::size_t kMostRestoreProblems = 1000;
/// Adds a sentence to the problems, unless there are too many already.
void addProblem(RestoreReport& report, const std::string& sentence);

}  // namespace keldane
