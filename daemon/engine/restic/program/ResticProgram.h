// The installed storage program.
#pragma once

#include <cstdint>
#include <string>

#include "daemon/engine/BackupEngine.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Finds the program and knows its version, which is asked again only when the file has changed. Used on any
/// thread.
class ResticProgram {
 public:
  /// An absolute path, or a name that is looked for in PATH.
  explicit ResticProgram(std::string name) : name_(std::move(name)) {}

  struct Found {
    EngineAnswer answer;  ///< engineMissing, engineTooOld, or why it could not be asked
    std::string path;     ///< absolute
    unsigned minor = 0;   ///< 14 for 0.14.1; a version 1.0 and newer counts as 999
  };
  Found find(EngineJob& job);

 private:
  struct Identity {
    std::string path;
    std::int64_t changed = 0;
    std::int64_t size = -1;
    bool operator==(const Identity&) const = default;
  };

  const std::string name_;
  Mutex mutex_;
  Identity known_ KELDANE_GUARDED_BY(mutex_);
  Found found_ KELDANE_GUARDED_BY(mutex_);
};

}  // namespace keldane
