// Watches the progress of a restore into a staging while the storage program works.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

#include "platform/threads/Mutex.h"

namespace keldane {

/// Adds up the sizes of the files in a staging once a second, up to a limited number of files, and reports
/// the sum on a thread of its own. After the destructor nothing is reported any more.
class StagingWatch {
 public:
  StagingWatch(int folder, std::function<void(std::uint64_t bytes)> tell);
  ~StagingWatch();
  StagingWatch(const StagingWatch&) = delete;
  StagingWatch& operator=(const StagingWatch&) = delete;

 private:
  void run();
  /// Waits for the next look. Returns false when the watch ends before it.
  bool pause() KELDANE_EXCLUDES(mutex_);

  const int folder_;
  const std::function<void(std::uint64_t)> tell_;
  Mutex mutex_{{.name = "StagingWatch.mutex", .leaf = true}};
  Condition ended_;
  bool isEnded_ KELDANE_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace keldane
