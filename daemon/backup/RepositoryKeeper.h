// The interface through which the storing threads use the upkeep of the repository.
#pragma once

#include <cstdint>
#include <optional>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// Work on the repository besides batches: making it ready, and its upkeep.
class RepositoryKeeper {
 public:
  virtual ~RepositoryKeeper() = default;
  /// Makes the repository usable: sets it up at the first start, and brings the catalogue up to what the
  /// repository holds. Called before the first batch and again after each change of the repository.
  virtual EngineAnswer makeReady(EngineJob& job) = 0;
  /// Does the upkeep that is due (forget, prune, check, drill) and returns the result; absent when nothing
  /// was due.
  virtual std::optional<EngineAnswer> lookAfter(EngineJob& job) = 0;
  /// Whether the repository must not be changed until a user allows it.
  virtual bool isRecovering() = 0;
  /// Whether the quota leaves room, with a sentence when it does not.
  virtual EngineAnswer mayGrow() = 0;
  /// Called after a batch, with the bytes that it added.
  virtual void grew(std::uint64_t bytes) = 0;
  /// Called when the backup is up to date and the repository answers, or when a batch has succeeded.
  virtual void noteGood() = 0;
  /// Called when every file has been read and stored again after stored bytes were lost.
  virtual void storedAnew() {}
};

}  // namespace keldane
