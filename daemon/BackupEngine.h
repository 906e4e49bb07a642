// What backs a file up.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "daemon/Store.h"

namespace keldane {

/// The one thing that a real store of file contents has to take the place of. Called from the worker's
/// thread.
class BackupEngine {
 public:
  virtual ~BackupEngine() = default;
  /// Backs up a regular file and answers what to record; absent when it cannot be read, is gone, or
  /// `cancelled` became true.
  virtual std::optional<BackupRecord> backUp(const std::string& path, const std::atomic<bool>& cancelled) = 0;
};

/// Reads a file and keeps its size, date and digest; the contents are stored nowhere.
class RecordingEngine final : public BackupEngine {
 public:
  std::optional<BackupRecord> backUp(const std::string& path, const std::atomic<bool>& cancelled) override;
};

}  // namespace keldane
