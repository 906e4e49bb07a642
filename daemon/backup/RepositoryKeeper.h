// What the threads that store ask of who looks after the repository.
#pragma once

#include <cstdint>
#include <optional>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// What happens between batches when nothing waits: making the repository ready, looking after it.
class RepositoryKeeper {
 public:
  virtual ~RepositoryKeeper() = default;
  /// Makes the repository usable: sets it up at the first start, and brings the catalogue up to what the
  /// repository holds. Called before the first batch and again after each change of the repository.
  virtual EngineAnswer makeReady(EngineJob& job) = 0;
  /// Does what is due (forget, prune, check, drill) and answers how it went; absent when nothing was.
  virtual std::optional<EngineAnswer> lookAfter(EngineJob& job) = 0;
  /// Whether the repository is to be left as it is until a person says otherwise.
  virtual bool isRecovering() = 0;
  /// Whether the quota leaves room, with a sentence when it does not.
  virtual EngineAnswer mayGrow() = 0;
  /// Tells of a finished batch.
  virtual void grew(std::uint64_t bytes) = 0;
  /// Nothing waits and the repository answers, or a batch went well.
  virtual void noteGood() = 0;
  /// After stored bytes were lost, every file has been read and stored again.
  virtual void storedAnew() {}
};

}  // namespace keldane
