// What backs a file up.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "daemon/Store.h"

namespace keldane {

/// What a worker and its engine tell each other while a file is being backed up.
struct BackupJob {
  std::atomic<bool> cancelled = false;       ///< set by the worker: give up after the block at hand
  std::atomic<std::uint64_t> bytesDone = 0;  ///< kept by the engine, of this file
};

/// The one thing that a real store of file contents has to take the place of. Called from the worker's
/// thread.
class BackupEngine {
 public:
  virtual ~BackupEngine() = default;
  /// Backs up a regular file and answers what to record; absent when it cannot be read, is gone, or
  /// the job was cancelled.
  virtual std::optional<BackupRecord> backUp(const std::string& path, BackupJob& job) = 0;
};

/// Reads a file and keeps its size, date and digest; the contents are stored nowhere.
class RecordingEngine final : public BackupEngine {
 public:
  std::optional<BackupRecord> backUp(const std::string& path, BackupJob& job) override;
};

}  // namespace keldane
