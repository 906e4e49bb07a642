// Watches the progress of a restore into a staging while the storage program works.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

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

  const int folder_;
  const std::function<void(std::uint64_t)> tell_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool isEnded_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace keldane
