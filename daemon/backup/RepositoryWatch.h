// The condition of the repository, and the time when it may be tried again.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "daemon/engine/BackupEngine.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Remembers the last failure of the whole repository until a call succeeds. After each failure in a row the
/// pause before the next try doubles, from 5 s to 10 min; for a disk that is not connected it stays 5 s. Any
/// thread; the mutex is a leaf.
class RepositoryWatch {
 public:
  using Clock = std::chrono::steady_clock;
  /// Called once for each failure of another kind than the one before, and with `ready` when the failures are
  /// over, on the reporting thread.
  using Alert = std::function<void(const EngineAnswer& answer)>;

  explicit RepositoryWatch(Alert alert = [](const EngineAnswer&) {}) : alert_(std::move(alert)) {}

  /// Takes the result of a call. The answer of a cancelled call changes nothing.
  void report(const EngineAnswer& answer);
  /// Lets the next try begin at once, because a person or a device changed something.
  void tryNow();

  /// The condition at the last call; `ready` before the first.
  EngineAnswer standing() const;
  bool mayTry(Clock::time_point now = Clock::now()) const;

 private:
  const Alert alert_;
  mutable Mutex mutex_;
  EngineAnswer standing_ KELDANE_GUARDED_BY(mutex_);
  unsigned failures_ KELDANE_GUARDED_BY(mutex_) = 0;  // in a row
  Clock::time_point nextTry_ KELDANE_GUARDED_BY(mutex_) = {};
};

}  // namespace keldane
