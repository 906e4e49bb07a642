// Tells the user when a daemon holds a link and does not answer.
#pragma once

#include <chrono>
#include <thread>

#include "platform/threads/Mutex.h"

namespace keldane {

/// A program that follows the daemon for ever waits in its calls without a limit. A thread of this class
/// watches that the program's loop turns. When the loop has not turned for some time, it says so once on
/// standard error.
class StallWatch {
 public:
  /// With 0 seconds, nothing is ever said.
  explicit StallWatch(double seconds);
  ~StallWatch();
  StallWatch(const StallWatch&) = delete;
  StallWatch& operator=(const StallWatch&) = delete;

  /// Called at each turn of the loop. Returns true when the standstill before it was reported.
  bool turn();

 private:
  void watch(std::chrono::duration<double> limit);

  Mutex mutex_{{.name = "StallWatch.mutex", .leaf = true}};
  Condition changed_;
  bool over_ KELDANE_GUARDED_BY(mutex_) = false;
  bool turned_ KELDANE_GUARDED_BY(mutex_) = false;
  bool said_ KELDANE_GUARDED_BY(mutex_) = false;
  std::thread watcher_;
};

}  // namespace keldane
